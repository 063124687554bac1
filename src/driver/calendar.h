// Dates, times of day and the Julian day number that clock times are measured with.
#pragma once

#include <string_view>

#include "base/text_line.h"

namespace voxlith {

struct DateTime {
    int year = 0, month = 0, day = 0;
    int hour = 0, minute = 0, second = 0;
};

DateTime currentDateTime();  // local time

// Days, with the time of day as fraction.
double julianDay(const DateTime& when);

// Seconds of processor time of this process.
double processorSeconds();

// Compatibility: the header of the log gives the day before the month, its closing line the month before the day.
enum class DateOrder { dayFirst, monthFirst };

// "words" followed by first/second/year, two blanks and the time of day.
TextLine dateLine(std::string_view words, const DateTime& when, DateOrder order);

}  // namespace voxlith
