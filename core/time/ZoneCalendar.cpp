#include "core/time/ZoneCalendar.h"

#include <unicode/basictz.h>
#include <unicode/gregocal.h>
#include <unicode/timezone.h>
#include <unicode/tztrans.h>
#include <unicode/unistr.h>

#include <cmath>
#include <cstdint>
#include <stdexcept>
#include <utility>

namespace velmo::core {
namespace {

using std::chrono::milliseconds;
using Instant = ZoneCalendar::Instant;

UDate toUDate(Instant instant) { return static_cast<UDate>(instant.time_since_epoch().count()); }
// None for a value past 64-bit milliseconds, which ICU never gives for a real transition.
std::optional<Instant> fromUDate(UDate date) {
  if (!(std::abs(date) < 9.0e18)) return std::nullopt;
  return Instant(milliseconds(static_cast<std::int64_t>(std::floor(date))));
}

}  // namespace

struct ZoneCalendar::Zone {
  std::unique_ptr<icu::TimeZone> zone;
  const icu::BasicTimeZone* basicZone = nullptr;
  // The prototype each cursor clones.
  std::unique_ptr<icu::Calendar> calendar;
};

struct ZoneCalendar::Cursor::Clone {
  std::unique_ptr<icu::Calendar> calendar;
};

ZoneCalendar::Cursor::Cursor(std::unique_ptr<Clone> clone) : clone_(std::move(clone)) {}
ZoneCalendar::Cursor::Cursor(Cursor&&) noexcept = default;
ZoneCalendar::Cursor::~Cursor() = default;

std::optional<ZoneCalendar::Fields> ZoneCalendar::Cursor::fields(Instant instant) {
  icu::Calendar& calendar = *clone_->calendar;
  UErrorCode status = U_ZERO_ERROR;
  calendar.setTime(toUDate(instant), status);
  Fields fields;
  fields.weekday = calendar.get(UCAL_DAY_OF_WEEK, status);
  fields.weekOfMonth = calendar.get(UCAL_WEEK_OF_MONTH, status);
  fields.minuteOfDay =
      calendar.get(UCAL_HOUR_OF_DAY, status) * 60 + calendar.get(UCAL_MINUTE, status);
  fields.sinceMidnight = milliseconds(calendar.get(UCAL_MILLISECONDS_IN_DAY, status));
  if (U_FAILURE(status)) return std::nullopt;
  return fields;
}

ZoneCalendar::ZoneCalendar(const std::string& timeZoneId) {
  auto zone = std::make_unique<Zone>();
  zone->zone.reset(icu::TimeZone::createTimeZone(icu::UnicodeString::fromUTF8(timeZoneId)));
  if (!zone->zone) throw std::runtime_error("no time zone could be made");
  zone->basicZone = dynamic_cast<const icu::BasicTimeZone*>(zone->zone.get());
  UErrorCode status = U_ZERO_ERROR;
  // The locale only supplies week rules, which are set explicitly next.
  auto calendar =
      std::make_unique<icu::GregorianCalendar>(*zone->zone, icu::Locale("en_US"), status);
  if (U_FAILURE(status)) throw std::runtime_error("no Gregorian calendar could be made");
  calendar->setFirstDayOfWeek(UCAL_SUNDAY);
  calendar->setMinimalDaysInFirstWeek(1);
  zone->calendar = std::move(calendar);
  zone_ = std::move(zone);
}

ZoneCalendar::~ZoneCalendar() = default;

ZoneCalendar::Cursor ZoneCalendar::cursor() const {
  return Cursor(std::make_unique<Cursor::Clone>(
      Cursor::Clone{std::unique_ptr<icu::Calendar>(zone_->calendar->clone())}));
}

milliseconds ZoneCalendar::offset(Instant instant) const {
  std::int32_t raw = 0;
  std::int32_t dst = 0;
  UErrorCode status = U_ZERO_ERROR;
  zone_->zone->getOffset(toUDate(instant), false, raw, dst, status);
  return milliseconds(std::int64_t{raw} + dst);
}

milliseconds ZoneCalendar::offsetBeforeTransition(WallTime wall) const {
  std::int32_t raw = 0;
  std::int32_t dst = 0;
  UErrorCode status = U_ZERO_ERROR;
  const auto local = static_cast<UDate>(wall.time_since_epoch().count());
  if (zone_->basicZone) {
    zone_->basicZone->getOffsetFromLocal(local, UCAL_TZ_LOCAL_FORMER, UCAL_TZ_LOCAL_FORMER, raw,
                                         dst, status);
  } else {
    zone_->zone->getOffset(local, true, raw, dst, status);
  }
  return milliseconds(std::int64_t{raw} + dst);
}

std::optional<Instant> ZoneCalendar::nextTransition(Instant instant) const {
  icu::TimeZoneTransition transition;
  if (!zone_->basicZone ||
      !zone_->basicZone->getNextTransition(toUDate(instant), false, transition)) {
    return std::nullopt;
  }
  return fromUDate(transition.getTime());
}

std::optional<Instant> ZoneCalendar::previousTransition(Instant instant) const {
  icu::TimeZoneTransition transition;
  if (!zone_->basicZone ||
      !zone_->basicZone->getPreviousTransition(toUDate(instant), true, transition)) {
    return std::nullopt;
  }
  return fromUDate(transition.getTime());
}

}  // namespace velmo::core
