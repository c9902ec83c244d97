#include "System/LocalTime.h"

#include <boost/date_time/c_time.hpp>
#include <boost/date_time/posix_time/posix_time.hpp>

namespace zrn::detail {

namespace {

boost::posix_time::ptime LocalTime(std::time_t when) {
  std::tm parts{};
  boost::date_time::c_time::localtime(&when, &parts);
  return boost::posix_time::ptime_from_tm(parts);
}

} // namespace

std::string TimeOfDayText(std::time_t when) {
  return boost::posix_time::to_simple_string(LocalTime(when).time_of_day());
}

std::string DateTimeText(std::time_t when) {
  return boost::posix_time::to_simple_string(LocalTime(when));
}

std::string IsoBasicText(std::time_t when) {
  return boost::posix_time::to_iso_string(LocalTime(when));
}

} // namespace zrn::detail
