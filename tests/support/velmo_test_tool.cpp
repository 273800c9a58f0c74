// A stand-in for the velmo tool that tests start as a real child process.
//   --exit N        exit with status N (default 0)
//   --sleep S       sleep S seconds first (fractions allowed)
//   --ignore-term   ignore SIGTERM
//   --chatter       write plenty to standard output and standard error
//   --stderr-bytes N  write N bytes of text to standard error
//   --child FILE    first start a child that sleeps as long, ignoring SIGTERM
//                   (as --ignore-term does, when given before), and write its pid to FILE
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>

int main(int argc, char** argv) {
  int status = 0;
  double sleepSeconds = 0;
  bool chatter = false;
  long stderrBytes = 0;
  const char* childFile = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (!std::strcmp(argv[i], "--exit") && i + 1 < argc) {
      status = std::atoi(argv[++i]);
    } else if (!std::strcmp(argv[i], "--sleep") && i + 1 < argc) {
      sleepSeconds = std::atof(argv[++i]);
    } else if (!std::strcmp(argv[i], "--ignore-term")) {
      ::signal(SIGTERM, SIG_IGN);
    } else if (!std::strcmp(argv[i], "--chatter")) {
      chatter = true;
    } else if (!std::strcmp(argv[i], "--stderr-bytes") && i + 1 < argc) {
      stderrBytes = std::atol(argv[++i]);
    } else if (!std::strcmp(argv[i], "--child") && i + 1 < argc) {
      childFile = argv[++i];
    }
  }
  if (chatter) {
    // More than a pipe holds, so a reader that doesn't drain would stall us.
    for (int line = 0; line < 20000; ++line) {
      std::printf("velmo-test-tool chatter on stdout, line %d\n", line);
      std::fprintf(stderr, "velmo-test-tool chatter on stderr, line %d\n", line);
    }
  }
  for (long written = 0; written < stderrBytes; ++written) {
    std::fputc(written % 64 == 63 ? '\n' : 'e', stderr);
  }
  std::fflush(stderr);
  if (childFile) {
    const pid_t child = ::fork();
    if (child == 0) {
      ::signal(SIGTERM, SIG_IGN);
      childFile = nullptr;
    } else if (FILE* file = std::fopen(childFile, "w")) {
      std::fprintf(file, "%d\n", static_cast<int>(child));
      std::fclose(file);
    }
  }
  if (sleepSeconds > 0) {
    timespec pause{static_cast<time_t>(sleepSeconds),
                   static_cast<long>((sleepSeconds - static_cast<time_t>(sleepSeconds)) * 1e9)};
    while (::nanosleep(&pause, &pause) != 0) {
    }
  }
  return status;
}
