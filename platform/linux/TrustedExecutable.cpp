#include "platform/linux/TrustedExecutable.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <cstring>
#include <deque>
#include <utility>
#include <vector>

#include "platform/linux/Descriptor.h"

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

}  // namespace

std::variant<TrustedExecutable::Opened, Failure> TrustedExecutable::open(
    const std::filesystem::path& program, const std::filesystem::path& root) {
  const std::filesystem::path top = root.empty() ? std::filesystem::path("/") : root;
  const auto relative = program.lexically_normal().lexically_relative(top.lexically_normal());
  if (!program.is_absolute() || relative.empty() || *relative.begin() == "..") {
    return Failure{program.string() + " lies outside " + top.string(), true};
  }
  // A plain failure: the system's reason, read from errno.
  const auto failed = [] { return Failure{std::strerror(errno), false}; };
  // Checks the folder or file just opened; `shown` names it in a refusal.
  const auto check = [](int fd, const std::string& shown) -> std::string {
    struct stat status {};
    if (::fstat(fd, &status) != 0) return shown + " can't be examined";
    return objection(status, shown);
  };
  // The folders walked so far, each checked, the last the current one; a
  // link's ".." steps back along them, never above where the walk began.
  std::vector<std::pair<Descriptor, std::filesystem::path>> trail;
  const auto enter = [&](Descriptor folder, std::filesystem::path shown) {
    trail.emplace_back(std::move(folder), std::move(shown));
  };
  enter(Descriptor(::open(top.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC)), top);
  if (trail.back().first.get() < 0) return failed();
  if (auto no = check(trail.back().first.get(), top.string()); !no.empty()) {
    return Failure{no, true};
  }

  std::deque<std::string> pending = componentsOf(relative);
  int links = 0;
  while (!pending.empty()) {
    const std::string name = std::move(pending.front());
    pending.pop_front();
    const int current = trail.back().first.get();
    const std::filesystem::path& shown = trail.back().second;
    if (name == "..") {
      if (trail.size() == 1)
        return Failure{program.string() + " leads above " + shown.string(), true};
      trail.pop_back();
      continue;
    }
    struct stat status {};
    if (::fstatat(current, name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
      return failed();
    }
    if (S_ISLNK(status.st_mode)) {
      // The folder holding it is root's alone, so only root placed the link;
      // its target is walked and checked the same way.
      if (auto no = objection(status, "the link " + (shown / name).string()); !no.empty()) {
        return Failure{no, true};
      }
      if (++links > kLinkLimit) {
        errno = ELOOP;
        return failed();
      }
      char target[PATH_MAX];
      const ssize_t length = ::readlinkat(current, name.c_str(), target, sizeof target);
      if (length < 0 || static_cast<std::size_t>(length) >= sizeof target) {
        return failed();
      }
      const std::filesystem::path destination(
          std::string(target, static_cast<std::size_t>(length)));
      if (destination.is_absolute()) {
        trail.clear();
        enter(Descriptor(::open("/", O_PATH | O_DIRECTORY | O_CLOEXEC)), "/");
        if (auto no = check(trail.back().first.get(), "/"); !no.empty()) return Failure{no, true};
      }
      const auto names = componentsOf(destination);
      pending.insert(pending.begin(), names.begin(), names.end());
      continue;
    }
    Descriptor next(::openat(current, name.c_str(), O_PATH | O_NOFOLLOW | O_CLOEXEC));
    const std::filesystem::path nextShown = shown / name;
    if (next.get() < 0) return failed();
    // On what was opened, not on what was looked at before.
    struct stat opened {};
    if (::fstat(next.get(), &opened) != 0) return failed();
    if (auto no = objection(opened, nextShown.string()); !no.empty()) return Failure{no, true};
    const bool last = pending.empty();
    if (!last && !S_ISDIR(opened.st_mode)) {
      errno = ENOTDIR;
      return failed();
    }
    if (last && !S_ISREG(opened.st_mode)) {
      return Failure{nextShown.string() + " is not a regular file", true};
    }
    enter(std::move(next), nextShown);
  }
  return Opened{trail.back().first.release()};
}

}  // namespace velmo::platform::linux
