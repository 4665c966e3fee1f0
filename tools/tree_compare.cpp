#include "tree_compare.h"

#include <cstring>

#include "stream_data.h"
#include "tree.h"

namespace aotool {
namespace {

constexpr auto kPiece = static_cast<int64_t>(kScratchBytes);

std::string CompareData(const Container& a, aoStream& sa, const Container& b, aoStream& sb, const std::string& path,
                        Progress* progress) {
  if (sa.GetLength() != sb.GetLength())
    return path + ": " + std::to_string(sa.GetLength()) + " bytes against " + std::to_string(sb.GetLength());
  sa.Seek(0, 0, true);
  sb.Seek(0, 0, true);
  unsigned char* bytesA = Scratch(0);
  unsigned char* bytesB = Scratch(1);
  for (int64_t done = 0; done < sa.GetLength();) {
    const int64_t gotA = sa.Read(bytesA, kPiece);
    const int64_t gotB = sb.Read(bytesB, kPiece);
    if (gotA <= 0) FailWithDiagnosis(a.file(), Exit::kUnreadable, "cannot read " + path);
    if (gotB <= 0) FailWithDiagnosis(b.file(), Exit::kUnreadable, "cannot read " + path);
    const int64_t common = std::min(gotA, gotB);
    if (gotA != gotB || std::memcmp(bytesA, bytesB, static_cast<size_t>(common)) != 0) {
      int64_t at = 0;
      while (at < common && bytesA[static_cast<size_t>(at)] == bytesB[static_cast<size_t>(at)]) ++at;
      return path + ": the bytes differ at position " + std::to_string(done + at);
    }
    done += gotA;
    if (progress != nullptr) progress->Advance(gotA);
  }
  return "";
}

std::string CompareLevel(const Container& a, aoStream* folderA, const Container& b, aoStream* folderB,
                         const std::string& prefix, Progress* progress) {
  const std::vector<TreeEntry> left = ListChildren(a, folderA);
  const std::vector<TreeEntry> right = ListChildren(b, folderB);
  for (size_t i = 0; i < std::max(left.size(), right.size()); ++i) {
    const std::string at = prefix.empty() ? "" : prefix + "/";
    if (i >= left.size()) return at + right[i].name + " is only in " + b.file();
    if (i >= right.size() || left[i].name != right[i].name) return at + left[i].name + " is only in " + a.file();
    const std::string path = at + left[i].name;
    if (left[i].folder != right[i].folder) return path + " is a folder in one and a data stream in the other";
    const HeldStream childA(OpenChild(a, folderA, left[i].name, kAoModeInspect));
    const HeldStream childB(OpenChild(b, folderB, right[i].name, kAoModeInspect));
    if (childA.get() == nullptr) FailWithDiagnosis(a.file(), Exit::kUnreadable, "cannot open " + path);
    if (childB.get() == nullptr) FailWithDiagnosis(b.file(), Exit::kUnreadable, "cannot open " + path);
    const std::string difference =
        left[i].folder ? CompareLevel(a, childA.get(), b, childB.get(), path, progress)
                       : CompareData(a, *childA.get(), b, *childB.get(), path, progress);
    if (!difference.empty()) return difference;
  }
  return "";
}

}  // namespace

std::string CompareTrees(const Container& a, aoStream* folderA, const Container& b, aoStream* folderB,
                         Progress* progress) {
  return CompareLevel(a, folderA, b, folderB, "", progress);
}

}  // namespace aotool
