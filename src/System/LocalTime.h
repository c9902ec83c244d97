// Local calendar time in whole seconds, as text.
#ifndef ZRN_SRC_SYSTEM_LOCALTIME_H
#define ZRN_SRC_SYSTEM_LOCALTIME_H

#include <ctime>
#include <string>

namespace zrn::detail {

/// "hh:mm:ss" of `when` in local time, on the 24-hour clock. Throws
/// std::runtime_error("could not convert calendar time to local time").
std::string TimeOfDayText(std::time_t when);

/// "yyyy-Mmm-dd hh:mm:ss" of `when` in local time (month as its English
/// three-letter abbreviation). Throws as TimeOfDayText.
std::string DateTimeText(std::time_t when);

/// "yyyymmddThhmmss" of `when` in local time (the ISO basic form). Throws as
/// TimeOfDayText.
std::string IsoBasicText(std::time_t when);

} // namespace zrn::detail

#endif
