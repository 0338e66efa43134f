// Dates: seconds since 1970 to calendar years, always in UTC.
#include <kvfile/kvhost.h>

#include "interface/error_state.h"
#include "memory/object_memory.h"
#include "memory/symbol_table.h"

#include <limits>

namespace {

constexpr int64 SECONDS_PER_DAY = 86400;
constexpr int MILLISECONDS_PER_DAY = 86400000;
constexpr int64 DAYS_PER_ERA = 146097;  // 400 years of the Gregorian calendar
constexpr int64 DAYS_TO_1970 = 719162;  // from 1 January of year 1

struct YearAndDay {
  int64 year;
  int64 dayOfYear;  // from 1
};

bool isLeapYear(int64 year) { return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0); }

int64 floorDivide(int64 value, int64 divisor) {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}

// Days from 1 January of year 1 to that of `year`.
int64 daysBeforeYear(int64 year) {
  const int64 past = year - 1;
  return past * 365 + floorDivide(past, 4) - floorDivide(past, 100) + floorDivide(past, 400);
}

YearAndDay yearOfDay(int64 daysSince1970) {
  const int64 day = daysSince1970 + DAYS_TO_1970;
  int64 year = floorDivide(day, DAYS_PER_ERA) * 400 + 1;
  year += (day - daysBeforeYear(year)) / 366;  // at most one year short
  while (day >= daysBeforeYear(year + 1)) ++year;
  return {year, day - daysBeforeYear(year) + 1};
}

bool isDate(const KciDateTimeSType& value) {
  const int days = isLeapYear(value.year) ? 366 : 365;
  return value.dayOfYear >= 1 && value.dayOfYear <= days && value.milliseconds >= 0 &&
         value.milliseconds < MILLISECONDS_PER_DAY;
}

}  // namespace

extern "C" {

void KciCTimeToDateTime(int64 time, KciDateTimeSType* out) {
  const int64 days = floorDivide(time, SECONDS_PER_DAY);
  const YearAndDay date = yearOfDay(days);
  if (date.year < std::numeric_limits<int>::min() || date.year > std::numeric_limits<int>::max()) {
    kvhost::interface::fail(kvhost::interface::ERROR_DATE_RANGE);
    return;
  }
  out->year = static_cast<int>(date.year);
  out->dayOfYear = static_cast<int>(date.dayOfYear);
  out->milliseconds = static_cast<int>(time - days * SECONDS_PER_DAY) * 1000;
  out->timeZone = kvhost::memory::internSymbol("UTC");
  if (out->timeZone == OOP_NIL) {
    kvhost::interface::fail(kvhost::interface::ERROR_NO_MEMORY, kvhost::CLASS_SYMBOL);
  }
}

OopType KciNewDateTime(OopType cls, const KciDateTimeSType* value) {
  using kvhost::interface::failWith;
  if (cls != OOP_CLASS_DATE_TIME) {
    return failWith(OOP_NIL, kvhost::interface::ERROR_NOT_INSTANTIABLE, cls);
  }
  if (!isDate(*value)) return failWith(OOP_NIL, kvhost::interface::ERROR_DATE_RANGE);
  const kvhost::memory::ClassInfo& info = *kvhost::memory::findClass(cls);
  const kvhost::memory::NewObject made = kvhost::memory::threadMemory().make(info, info.fixedSize);
  if (made.slot == nullptr) return failWith(OOP_NIL, kvhost::interface::ERROR_NO_MEMORY, cls);
  OopType* elements = elementsIn(*made.slot);
  elements[0] = oopFromSmallInteger(value->year);
  elements[1] = oopFromSmallInteger(value->dayOfYear);
  elements[2] = oopFromSmallInteger(value->milliseconds);
  elements[3] = value->timeZone;
  made.slot->flags |= kvhost::memory::SLOT_INVARIANT;
  return made.oop;
}

}  // extern "C"
