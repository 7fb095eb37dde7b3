// Entry point: options, confirmation prompt, standard streams, one scan.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "app/options.h"
#include "app/scanner.h"

namespace {

// Points a standard stream at /dev/null. The descriptor is replaced under
// the stream (rather than reopening the stream itself), so the stream
// stays usable even if /dev/null could not be opened.
// Nothing has been written to or read from the stream yet, so no buffered
// data is lost.
void discard_stream(int fd, int flags) {
  const int null_fd = open("/dev/null", flags);
  if (null_fd < 0) return;
  if (null_fd != fd) {
    dup2(null_fd, fd);
    close(null_fd);
  }
}

void ignore_signal(int) {}

// A program that reads the progress lines may close its end of the pipe
// early (`quillscan /silent | head -1`). A handler that does nothing turns
// the fatal SIGPIPE into a write that fails with EPIPE; the console output
// ignores such failures and the scan still writes its file. SIG_IGN would
// do the same here, but an ignored signal stays ignored across exec in
// every tool the agent runs, while a handler is reset to the default.
void survive_closed_output() {
  struct sigaction action;
  std::memset(&action, 0, sizeof action);
  action.sa_handler = ignore_signal;
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &action, nullptr);
}

}  // namespace

int main(int argc, char** argv) {
  survive_closed_output();
  const Options options = parse_options(argc, argv);
  if (options.help) {
    print_help(stdout);
    return 0;
  }

  if (options.silent) {
    // Nobody answers a silent run; with the log option its standard error
    // stays visible for diagnosis.
    discard_stream(STDIN_FILENO, O_RDONLY);
    if (!options.log) discard_stream(STDERR_FILENO, O_WRONLY);
  } else {
    // The log option keeps standard error only in a silent run.
    discard_stream(STDERR_FILENO, O_WRONLY);
    printf(
        "Larkspur Census scanner for ESXi-hypervisor (version %s.%s)\nDo you want to start the "
        "scan of local computer?(y/n)\n",
        kVersionMajor, kVersionBuild);
    fflush(stdout);
    // One blank-delimited word, at most 127 bytes of it (the rest of a
    // longer word is left unread; such a word is no valid answer anyway).
    char answer[128] = "";
    if (scanf("%127s", answer) != 1) answer[0] = '\0';
    if (std::strcmp(answer, "y") == 0) {
      printf("Scan started...\n");
      fflush(stdout);
    } else if (std::strcmp(answer, "n") == 0) {
      printf("Scan canceled.\n");
      return 0;
    } else {
      printf("Incorrect input. Application terminated.\n");
      return 1;
    }
  }

  CScaner* scanner = new CScaner();
  run_scan(scanner, options.silent, false, options.debug,
           options.has_ip ? options.ip.c_str() : nullptr, options.login.c_str(), options.log);
  delete scanner;
  return 0;
}
