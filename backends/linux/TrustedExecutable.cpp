#include "backends/linux/TrustedExecutable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include "backends/linux/Descriptor.h"

namespace velmo::platform::linux {
namespace {

// The kernel's own bound on links in one lookup.
constexpr int kLinkLimit = 40;

std::deque<std::string> componentsOf(const std::filesystem::path& path) {
  std::deque<std::string> names;
  for (const auto& component : path.relative_path()) {
    if (!component.empty() && component != ".") names.push_back(component.string());
  }
  return names;
}

std::string modeText(mode_t mode) {
  char text[8];
  std::snprintf(text, sizeof text, "%04o", static_cast<unsigned>(mode & 07777));
  return text;
}

// Why `status` of `shown` is no place for root's programs; empty when it is.
std::string objection(const struct stat& status, const std::string& shown) {
  if (status.st_uid != 0) {
    return shown + " is owned by uid " + std::to_string(status.st_uid) + ", not root";
  }
  if (!S_ISLNK(status.st_mode) && (status.st_mode & (S_IWGRP | S_IWOTH)) != 0) {
    return shown + " is writable by its group or others (mode " + modeText(status.st_mode) + ")";
  }
  return "";
}

using Failure = TrustedExecutable::Failure;

// A plain failure: the system's reason, read from errno.
Failure failed() { return Failure{std::strerror(errno), false}; }

// The walk from the top folder down to the program, one name at a time, on
// descriptors: each folder and file is checked as it was opened.
class Walk {
 public:
  explicit Walk(const std::filesystem::path& program) : program_(program) {}

  // Opens and checks `top`, then the names below it, in turn.
  std::optional<Failure> run(const std::filesystem::path& top, std::deque<std::string> names) {
    if (auto no = enter(top)) return no;
    pending_ = std::move(names);
    while (!pending_.empty()) {
      std::string name = std::move(pending_.front());
      pending_.pop_front();
      if (auto no = step(name)) return no;
    }
    return std::nullopt;
  }
  Descriptor& program() { return trail_.back().first; }

 private:
  // Opens a folder the walk starts from (again), after all it had walked.
  std::optional<Failure> enter(const std::filesystem::path& folder) {
    trail_.clear();
    trail_.emplace_back(Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)),
                        folder);
    if (trail_.back().first.get() < 0) return failed();
    struct stat status {};
    if (::fstat(trail_.back().first.get(), &status) != 0) {
      return Failure{folder.string() + " can't be examined", true};
    }
    if (auto no = objection(status, folder.string()); !no.empty()) return Failure{no, true};
    return std::nullopt;
  }

  std::optional<Failure> step(const std::string& name) {
    const int current = trail_.back().first.get();
    const std::filesystem::path shown = trail_.back().second;
    if (name == "..") {
      // A link's ".." steps back along the folders walked, never above the top.
      if (trail_.size() == 1) {
        return Failure{program_.string() + " leads above " + shown.string(), true};
      }
      trail_.pop_back();
      return std::nullopt;
    }
    struct stat status {};
    if (::fstatat(current, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) return failed();
    if (S_ISLNK(status.st_mode)) return follow(current, name, status, shown);
    return descend(current, name, shown);
  }

  // The folder holding the link is root's alone, so only root placed it; its
  // target is walked and checked the same way.
  std::optional<Failure> follow(int current, const std::string& name, const struct stat& status,
                                const std::filesystem::path& shown) {
    if (auto no = objection(status, "the link " + (shown / name).string()); !no.empty()) {
      return Failure{no, true};
    }
    if (++links_ > kLinkLimit) {
      errno = ELOOP;
      return failed();
    }
    char target[PATH_MAX];
    const ssize_t length = ::readlinkat(current, name.c_str(), target, sizeof target);
    if (length < 0 || static_cast<std::size_t>(length) >= sizeof target) return failed();
    const std::filesystem::path destination(std::string(target, static_cast<std::size_t>(length)));
    if (destination.is_absolute()) {
      if (auto no = enter("/")) return no;
    }
    const auto names = componentsOf(destination);
    pending_.insert(pending_.begin(), names.begin(), names.end());
    return std::nullopt;
  }

  std::optional<Failure> descend(int current, const std::string& name,
                                 const std::filesystem::path& shown) {
    Descriptor next(::openat(current, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::filesystem::path nextShown = shown / name;
    if (next.get() < 0) return failed();
    // On what was opened, not on what was looked at before.
    struct stat opened {};
    if (::fstat(next.get(), &opened) != 0) return failed();
    if (auto no = objection(opened, nextShown.string()); !no.empty()) return Failure{no, true};
    const bool last = pending_.empty();
    if (!last && !S_ISDIR(opened.st_mode)) {
      errno = ENOTDIR;
      return failed();
    }
    if (last && !S_ISREG(opened.st_mode)) {
      return Failure{nextShown.string() + " is not a regular file", true};
    }
    trail_.emplace_back(std::move(next), nextShown);
    return std::nullopt;
  }

  const std::filesystem::path& program_;
  // The folders walked so far, each checked, the last the current one.
  std::vector<std::pair<Descriptor, std::filesystem::path>> trail_;
  std::deque<std::string> pending_;
  int links_ = 0;
};

}  // namespace

std::variant<TrustedExecutable::Opened, Failure> TrustedExecutable::open(
    const std::filesystem::path& program, const std::filesystem::path& root) {
  const std::filesystem::path top = root.empty() ? std::filesystem::path("/") : root;
  const auto relative = program.lexically_normal().lexically_relative(top.lexically_normal());
  if (!program.is_absolute() || relative.empty() || *relative.begin() == "..") {
    return Failure{program.string() + " lies outside " + top.string(), true};
  }
  Walk walk(program);
  if (auto no = walk.run(top, componentsOf(relative))) return *no;
  return Opened{walk.program().release()};
}

}  // namespace velmo::platform::linux
