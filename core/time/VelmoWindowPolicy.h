#pragma once

#include <memory>
#include <string>
#include <vector>

#include "core/time/VelmoTimeWindow.h"
#include "core/values/Time.h"

namespace velmo::core {

// Judges moments against allow and deny windows in the Gregorian calendar of
// one time zone: weeks start on Sunday and the week holding the 1st is week 1.
// Matching is by whole minutes of the local wall clock; seconds never count.
//
// A value: copies share one immutable calendar, and each call works on its
// own clone of it, so every method may run on any thread.
class VelmoWindowPolicy {
 public:
  // Why a moment is allowed or not.
  struct Verdict {
    enum class Kind {
      allowed,
      // In the deny window `window`: a blackout.
      blackout,
      // The allow window `window` holds this weekday and time, but in other weeks of the month.
      otherWeek,
      // In no allow window.
      outside,
    };
    Kind kind = Kind::allowed;
    // The index of the window in its list; -1 when none is meant.
    int window = -1;
    bool operator==(const Verdict&) const = default;
  };
  // The moments from `start` to just before `end` have one verdict.
  struct Stretch {
    TimePoint start;
    TimePoint end;
    Verdict verdict;
  };

  // `timeZoneId` is an Olson name such as "Europe/Berlin"; one the zone
  // database doesn't know behaves as UTC. Throws std::runtime_error only when
  // ICU can make no calendar at all (its data missing), never for bad input.
  VelmoWindowPolicy(std::vector<VelmoTimeWindow> allow, std::vector<VelmoTimeWindow> deny,
                    std::string timeZoneId);

  // Empty means no allow restriction.
  const std::vector<VelmoTimeWindow>& allowWindows() const { return allowWindows_; }
  const std::vector<VelmoTimeWindow>& denyWindows() const { return denyWindows_; }
  const std::string& timeZoneId() const { return timeZoneId_; }

  // Whether any window of either list names weeks of the month; planning then
  // looks further ahead.
  bool usesMonthScopedWindows() const;

  // Deny goes before allow; with no allow windows every moment not denied is allowed.
  bool isWithinAllowedWindow(TimePoint date) const;

  // `after` itself when it is allowed (seconds kept) or when nothing allowed
  // was found; otherwise the first allowed minute candidate. Candidates are
  // whole elapsed minutes from the start of each calendar day, for
  // `searchDays` days counted from the day of `after`, that day included. As
  // minutes are elapsed time, a 23-hour day's candidates run into the next
  // day and the last hour of a 25-hour day is never looked at. Works from the
  // windows' boundaries, a few calendar steps per day.
  TimePoint nextAllowedRunDate(TimePoint after, int searchDays) const;
  // The same answer by judging every candidate minute in turn: up to 1,440
  // calendar decompositions a day. The reference the fast search is held to.
  TimePoint nextAllowedRunDateByScan(TimePoint after, int searchDays) const;

  // The time from `from` to `to` cut where the verdict changes, each
  // wall-clock minute judged as isWithinAllowedWindow judges it. The first
  // and last stretch are clipped to `from` and `to`.
  std::vector<Stretch> stretches(TimePoint from, TimePoint to) const;

  // What "EnableVelmoTuesdayWindow" stands for: Tuesday of the month's second
  // calendar week, 09:00 to 17:00.
  static VelmoTimeWindow tuesdayWindow();
  // The system's time zone now, such as "Europe/Berlin"; a policy is built
  // with it at each evaluation, so a change of zone applies at once.
  static std::string currentTimeZoneId();

 private:
  class Calendar;

  std::vector<VelmoTimeWindow> allowWindows_;
  std::vector<VelmoTimeWindow> denyWindows_;
  std::string timeZoneId_;
  std::shared_ptr<const Calendar> calendar_;
};

}  // namespace velmo::core
