// Writes the compatibility fixtures into a folder, or checks the ones a build
// (this one or another) wrote there:
//   aostore_compat write FOLDER
//   aostore_compat verify FOLDER
// Exit status 0 when everything held; every problem is printed.
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>

#include "compat/fixtures.h"

int main(int argc, char** argv) {
  if (argc != 3 || (std::strcmp(argv[1], "write") != 0 && std::strcmp(argv[1], "verify") != 0)) {
    std::fprintf(stderr, "usage: %s write|verify FOLDER\n", argv[0]);
    return 2;
  }
  const bool write = std::strcmp(argv[1], "write") == 0;
  const std::string folder = argv[2];
  std::error_code error;
  if (write) {
    // A fresh folder every time: the fixtures are written from nothing.
    std::filesystem::remove_all(folder, error);
    std::filesystem::create_directories(folder, error);
  }
  const ao::compat::Problems problems = write ? ao::compat::WriteFixtures(folder) : ao::compat::VerifyFixtures(folder);
  for (const std::string& problem : problems.list()) std::fprintf(stderr, "%s: %s\n", argv[1], problem.c_str());
  std::printf("%s %s: %zu problem(s)\n", argv[1], folder.c_str(), problems.list().size());
  return problems.list().empty() ? 0 : 1;
}
