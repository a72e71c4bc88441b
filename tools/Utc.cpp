#include "tools/Utc.h"

#include <array>
#include <cstdint>
#include <cstdio>

#include "tools/WholeNumber.h"

namespace com_tesk::tools {

namespace {

using Days = std::chrono::duration<std::int64_t, std::ratio<86'400>>;

struct Date {
    std::int64_t year;
    unsigned month;
    unsigned day;
};

// The computations use years that begin in March, so that the leap day is the last one, and eras of 400 years.
constexpr std::int64_t kYearsInEra = 400;
constexpr std::int64_t kDaysInEra = 146'097;
constexpr std::int64_t kDaysBefore1970 = 719'468;  // since 0000-03-01
constexpr unsigned kDaysInFiveMonths = 153;        // Five months from March or August on have 31, 30, 31, 30, 31 days.

Date dateOf(Days since1970) {
    const std::int64_t days = since1970.count() + kDaysBefore1970;
    const std::int64_t era = (days >= 0 ? days : days - (kDaysInEra - 1)) / kDaysInEra;
    const auto dayOfEra = static_cast<unsigned>(days - era * kDaysInEra);
    const unsigned yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36'524 - dayOfEra / 146'096) / 365;
    const unsigned dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    const unsigned monthFromMarch = (5 * dayOfYear + 2) / kDaysInFiveMonths;
    const unsigned month = monthFromMarch < 10 ? monthFromMarch + 3 : monthFromMarch - 9;
    const std::int64_t year = std::int64_t{yearOfEra} + era * kYearsInEra + (month <= 2 ? 1 : 0);
    return {year, month, dayOfYear - (kDaysInFiveMonths * monthFromMarch + 2) / 5 + 1};
}

/// The year is not negative.
Days daysOf(const Date& date) {
    const std::int64_t year = date.year - (date.month <= 2 ? 1 : 0);
    const std::int64_t era = year / kYearsInEra;
    const auto yearOfEra = static_cast<unsigned>(year - era * kYearsInEra);
    const unsigned monthFromMarch = date.month > 2 ? date.month - 3 : date.month + 9;
    const unsigned dayOfYear = (kDaysInFiveMonths * monthFromMarch + 2) / 5 + date.day - 1;
    const unsigned dayOfEra = 365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return Days(era * kDaysInEra + dayOfEra - kDaysBefore1970);
}

/// Takes a number of so many digits, and the character that follows it, from the beginning of the text.
std::optional<unsigned> takeNumber(std::string_view& text, std::size_t digits, char next) {
    if (text.size() <= digits || text[digits] != next ||
        text.substr(0, digits).find_first_not_of("0123456789") != std::string_view::npos) {
        return std::nullopt;
    }
    const auto number = wholeNumber<unsigned>(text.substr(0, digits));
    text.remove_prefix(digits + 1);
    return number;
}

/// Reads decimals and a `Z`. Digits after the sixth are ignored.
bool readFraction(std::string_view text, UtcTime& fraction) {
    if (text.size() < 2 || text.back() != 'Z') {
        return false;
    }
    UtcTime unit(100'000);
    for (const char digit : text.substr(0, text.size() - 1)) {
        if (digit < '0' || digit > '9') {
            return false;
        }
        fraction += unit * (digit - '0');
        unit /= 10;
    }
    return true;
}

}  // namespace

std::string utcOf(UtcTime time) {
    const auto days = std::chrono::floor<Days>(time);
    const Date date = dateOf(days);
    const UtcTime rest = time - days;
    const auto hours = std::chrono::floor<std::chrono::hours>(rest);
    const auto minutes = std::chrono::floor<std::chrono::minutes>(rest - hours);
    const auto seconds = std::chrono::floor<std::chrono::seconds>(rest - hours - minutes);
    const UtcTime micros = rest - hours - minutes - seconds;
    std::array<char, 80> text{};
    std::snprintf(text.data(), text.size(), "%04lld-%02u-%02uT%02d:%02d:%02d.%06dZ", static_cast<long long>(date.year),
                  date.month, date.day, static_cast<int>(hours.count()), static_cast<int>(minutes.count()),
                  static_cast<int>(seconds.count()), static_cast<int>(micros.count()));
    return text.data();
}

std::string utcOf(std::chrono::system_clock::time_point time) {
    return utcOf(std::chrono::floor<UtcTime>(time.time_since_epoch()));
}

std::optional<UtcTime> timeOfUtc(std::string_view text) {
    constexpr unsigned kFirstYear = 1970;
    constexpr std::size_t kEndOfSeconds = 19;
    const bool hasFraction = text.size() > kEndOfSeconds && text[kEndOfSeconds] == '.';
    const auto year = takeNumber(text, 4, '-');
    const auto month = takeNumber(text, 2, '-');
    const auto day = takeNumber(text, 2, 'T');
    const auto hour = takeNumber(text, 2, ':');
    const auto minute = takeNumber(text, 2, ':');
    const auto second = takeNumber(text, 2, hasFraction ? '.' : 'Z');
    if (!year || !month || !day || !hour || !minute || !second || *year < kFirstYear || *hour > 23 || *minute > 59 ||
        *second > 59) {
        return std::nullopt;
    }
    UtcTime fraction(0);
    if (hasFraction ? !readFraction(text, fraction) : !text.empty()) {
        return std::nullopt;
    }
    const Date date{*year, *month, *day};
    const Days days = daysOf(date);
    const Date same = dateOf(days);
    if (*month < 1 || *day < 1 || same.month != *month || same.day != *day) {
        return std::nullopt;  // There is no such day.
    }
    return days + std::chrono::hours(*hour) + std::chrono::minutes(*minute) + std::chrono::seconds(*second) + fraction;
}

}  // namespace com_tesk::tools
