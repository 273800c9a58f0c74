#pragma once

#include <optional>
#include <string_view>

#include "core/time/TimeInterval.h"

namespace velmo::agent::maintenance {

// The names that installers leave behind in the application folders, such
// as ".Foo.app.new-20251104T093000Z-1a2b3c4d": hidden, marked new or old,
// stamped with a UTC time and eight hexadecimal digits.
class TempArtifactName {
 public:
  TempArtifactName() = delete;

  // The time in the name, as seconds since 1970, when the whole name has the
  // form and the stamp is a real date; nothing otherwise. Seconds in a double
  // rather than an instant, so that years far outside the clock's range
  // still compare.
  static std::optional<core::TimeInterval> timestamp(std::string_view lastPathComponent);
};

}  // namespace velmo::agent::maintenance
