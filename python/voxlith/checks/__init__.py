"""Checks of a survey before it is inverted: what would spoil a run, in words, and what to do about it."""

from .findings import Finding, Severity, findings_json, findings_table, worst
from .survey import check_survey

__all__ = ["Finding", "Severity", "check_survey", "findings_json", "findings_table", "worst"]
