#pragma once

#include <chrono>
#include <memory>
#include <optional>
#include <string>

namespace velmo::core {

// The time zone windows are judged in, and the Gregorian calendar that places
// moments in it: weeks start on Sunday and the week holding the 1st is week 1.
// The one place the windows ask ICU. Never changed after construction: ICU
// allows const use of one zone from several threads, and each caller places
// moments with a cursor of its own.
class ZoneCalendar {
 public:
  // ICU counts in milliseconds; so does all arithmetic of the windows.
  using Instant = std::chrono::sys_time<std::chrono::milliseconds>;
  using WallTime = std::chrono::local_time<std::chrono::milliseconds>;

  // One moment as the windows see it.
  struct Fields {
    int weekday = 0;  // Sunday 1.
    int weekOfMonth = 0;
    int minuteOfDay = 0;
    std::chrono::milliseconds sinceMidnight{};
  };

  // A clone of the calendar: it keeps a cursor, so it serves one caller on
  // one thread.
  class Cursor {
   public:
    Cursor(Cursor&&) noexcept;
    ~Cursor();

    // None when the calendar can't place the moment.
    std::optional<Fields> fields(Instant instant);

   private:
    friend class ZoneCalendar;
    struct Clone;
    explicit Cursor(std::unique_ptr<Clone> clone);

    std::unique_ptr<Clone> clone_;
  };

  // `timeZoneId` is an Olson name; one the zone database doesn't know
  // behaves as UTC. Throws std::runtime_error only when ICU can make no
  // zone or calendar at all (its data missing).
  explicit ZoneCalendar(const std::string& timeZoneId);
  ~ZoneCalendar();
  ZoneCalendar(const ZoneCalendar&) = delete;
  ZoneCalendar& operator=(const ZoneCalendar&) = delete;

  Cursor cursor() const;

  // The offset from UTC in force at `instant`.
  std::chrono::milliseconds offset(Instant instant) const;
  // The offset that reads `wall` as before a clock change: a skipped wall
  // time is read with the old offset, a repeated one is taken in its first pass.
  std::chrono::milliseconds offsetBeforeTransition(WallTime wall) const;
  // The first clock change strictly after `instant`, if the zone has one.
  std::optional<Instant> nextTransition(Instant instant) const;
  // The last clock change at or before `instant`.
  std::optional<Instant> previousTransition(Instant instant) const;

 private:
  struct Zone;

  std::unique_ptr<const Zone> zone_;
};

}  // namespace velmo::core
