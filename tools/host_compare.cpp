#include "host_compare.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <vector>

#include "errors.h"
#include "stream_data.h"

namespace fs = std::filesystem;

namespace aotool {
namespace {

struct Item {
  std::string name;
  bool directory;
};

std::vector<Item> Items(const fs::path& dir, const HostFilter& filter) {
  std::vector<Item> items;
  std::error_code error;
  for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error)) {
    const fs::file_status status = it->symlink_status(error);
    const bool directory = fs::is_directory(status);
    if (!directory && !fs::is_regular_file(status)) continue;
    const std::string name = it->path().filename().string();
    if (!filter || filter(name, directory)) items.push_back({name, directory});
  }
  if (error) Fail(Exit::kHostFile, dir.string() + ": cannot read the folder");
  std::sort(items.begin(), items.end(), [](const Item& a, const Item& b) { return a.name < b.name; });
  return items;
}

std::string CompareFiles(const fs::path& a, const fs::path& b, HostComparison& result) {
  std::ifstream left(a, std::ios::binary), right(b, std::ios::binary);
  if (!left || !right) return a.string() + ": cannot be read from both trees";
  auto* bytesA = reinterpret_cast<char*>(Scratch(0));
  auto* bytesB = reinterpret_cast<char*>(Scratch(1));
  while (true) {
    left.read(bytesA, static_cast<std::streamsize>(kScratchBytes));
    right.read(bytesB, static_cast<std::streamsize>(kScratchBytes));
    const std::streamsize got = left.gcount();
    if (got != right.gcount() || !std::equal(bytesA, bytesA + got, bytesB))
      return a.string() + " and " + b.string() + " differ";
    result.bytes += got;
    if (got == 0) break;
  }
  ++result.files;
  return "";
}

std::string CompareLevel(const fs::path& source, const fs::path& copy, const HostFilter& filter,
                         HostComparison& result) {
  const std::vector<Item> left = Items(source, filter);
  const std::vector<Item> right = Items(copy, nullptr);
  for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    if (i >= left.size()) return (copy / right[i].name).string() + " is not in the source";
    if (i >= right.size() || left[i].name != right[i].name)
      return (source / left[i].name).string() + " is missing from the copy";
    if (left[i].directory != right[i].directory) return (copy / right[i].name).string() + " is of another kind";
    const std::string difference =
        left[i].directory ? CompareLevel(source / left[i].name, copy / right[i].name, filter, result)
                          : CompareFiles(source / left[i].name, copy / right[i].name, result);
    if (!difference.empty()) return difference;
  }
  return "";
}

}  // namespace

HostComparison CompareHostTrees(const std::string& source, const std::string& copy, const HostFilter& filter) {
  HostComparison result;
  result.difference = CompareLevel(source, copy, filter, result);
  return result;
}

}  // namespace aotool
