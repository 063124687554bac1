"""Text off a file, words off a line, numbers off a word."""
import os
import re

FORTRAN_NUMBER = re.compile(r'([-+]?(?:\d+\.?\d*|\.\d+))(?:[dDqQ]([-+]?\d+)|([-+]\d+))')


class FormatError(Exception):
    """A file that cannot be used; the words are complete."""


class Missing(FormatError):
    """A file that is not there, or not yet."""


def read_text(path):
    if not os.path.isfile(path):
        raise Missing('%s is not there' % path)
    try:
        with open(path, encoding='utf-8', errors='replace') as file:
            return file.read()
    except OSError as error:
        raise FormatError('cannot read %s: %s' % (path, error.strerror)) from None


def number(text):
    """A real number, also in the forms 1.0d3 and 0.5-101; ValueError for anything else."""
    try:
        return float(text)
    except ValueError:
        match = FORTRAN_NUMBER.fullmatch(text)
        if not match:
            raise
        return float(match[1] + 'e' + (match[2] or match[3]))


def number_at(path, line, text, what):
    try:
        return number(text)
    except ValueError:
        raise FormatError("%s, line %d: '%s' is no number (%s)" % (path, line, text, what)) from None


def words_of(line):
    """Words between blanks, commas and tabs; two commas in a row hold an empty word."""
    return [word for word in re.split(r'[ ]*[,\t][ ]*|[ ]+', line.strip(' \r\n'))] if line.strip() else []


def free_numbers(text, most):
    """Up to `most` numbers read free-format: n*value repeats and a slash that ends the read."""
    found = []
    for word in words_of(text.split('/')[0]):
        count, star, value = word.rpartition('*')
        try:
            found += [number(value)] * (int(count) if star else 1)
        except ValueError:
            break
    return found[:most]
