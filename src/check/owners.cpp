#include "check/owners.h"

#include <algorithm>

namespace ao::check {
namespace {
// Deeper paths show their last components only: a message stays one line.
constexpr int kShownComponents = 12;
}  // namespace

int32_t Owners::Add(Owner owner) {
  owners_.push_back(std::move(owner));
  return static_cast<int32_t>(owners_.size() - 1);
}

std::string Owners::Describe(int32_t id) const {
  const Owner& owner = (*this)[id];
  if (!owner.live) return "removed stream record at " + std::to_string(owner.recordOffset);
  std::vector<const std::string*> names;
  bool cut = false;
  for (int32_t at = id; at >= 0; at = (*this)[at].parent) {
    if (static_cast<int>(names.size()) == kShownComponents) {
      cut = true;
      break;
    }
    names.push_back(&(*this)[at].name);
  }
  std::string path = owner.folder ? "folder " : "stream ";
  if (cut) path += "/...";
  std::for_each(names.rbegin(), names.rend(), [&path](const std::string* name) { path += "/" + *name; });
  return path;
}

}  // namespace ao::check
