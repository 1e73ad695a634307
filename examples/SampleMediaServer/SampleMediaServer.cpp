// A stand-in for the Morv Media Server, for the launcher's demonstration
// and benchmark: says that it started (its process id, working folder and
// arguments), then stops. With MORV_SAMPLE_SERVER_DONE set, it creates that
// file when it has finished writing, so that a script can wait for it.

#include <unistd.h>

#include <cstdio>
#include <cstdlib>

int main(int argc, char** argv) {
  char folder[4096];
  if (getcwd(folder, sizeof(folder)) == nullptr) folder[0] = '\0';
  std::printf("Sample Morv Media Server: started, process %ld\n", static_cast<long>(getpid()));
  std::fflush(stdout);  // the first line goes out at once (it may be a pipe)
  std::printf("Sample Morv Media Server: working folder %s\n", folder);
  std::printf("Sample Morv Media Server: %d argument%s\n", argc - 1, argc == 2 ? "" : "s");
  for (int i = 1; i < argc; ++i) std::printf("  %s\n", argv[i]);
  std::printf("Sample Morv Media Server: stopped\n");
  std::fflush(stdout);
  if (const char* done = std::getenv("MORV_SAMPLE_SERVER_DONE")) {
    if (FILE* marker = std::fopen(done, "w")) std::fclose(marker);
  }
  return 0;
}
