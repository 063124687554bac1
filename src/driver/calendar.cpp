#include "driver/calendar.h"

#include <chrono>
#include <ctime>

namespace voxlith {

DateTime currentDateTime() {
    const std::time_t now = std::chrono::system_clock::to_time_t(std::chrono::system_clock::now());
    std::tm local{};
    localtime_r(&now, &local);
    return {local.tm_year + 1900, local.tm_mon + 1, local.tm_mday, local.tm_hour, local.tm_min, local.tm_sec};
}

double julianDay(const DateTime& when) {
    using namespace std::chrono;
    constexpr double julianDayOf1970 = 2440587.5;
    const sys_days monthStart{year(when.year) / when.month / 1};
    const double dayOfMonth = when.day + when.hour / 24.0 + when.minute / 1440.0 + when.second / 86400.0;
    return static_cast<double>(monthStart.time_since_epoch().count()) + julianDayOf1970 - 1.0 + dayOfMonth;
}

double processorSeconds() {
    return static_cast<double>(std::clock()) / static_cast<double>(CLOCKS_PER_SEC);
}

TextLine dateLine(std::string_view words, const DateTime& when, DateOrder order) {
    const bool dayFirst = order == DateOrder::dayFirst;
    TextLine line(words);
    line.integer(dayFirst ? when.day : when.month, 2).text("/");
    line.integerZeros(dayFirst ? when.month : when.day, 2, 2).text("/").integer(when.year, 4).spaces(2);
    line.integerZeros(when.hour, 2, 2).text(":").integerZeros(when.minute, 2, 2).text(":");
    return line.integerZeros(when.second, 2, 2);
}

}  // namespace voxlith
