// The streams the checker has met, so that a problem can name the stream it
// belongs to by its path.
#ifndef AOSTORE_CHECK_OWNERS_H
#define AOSTORE_CHECK_OWNERS_H

#include <cstdint>
#include <string>
#include <vector>

namespace ao::check {

struct Owner {
  int32_t parent = -1;  // -1 for a root stream
  std::string name;     // empty for a removed stream's record
  int64_t recordOffset = 0;
  bool live = false;    // a stream in use, not a removed stream's record
  bool folder = false;
};

class Owners {
 public:
  // Parents are always added before their children, so every path ends.
  int32_t Add(Owner owner);
  const Owner& operator[](int32_t id) const { return owners_[static_cast<size_t>(id)]; }
  // "/Folder/name" for a stream in use, "removed stream record at N" otherwise.
  std::string Describe(int32_t id) const;

 private:
  std::vector<Owner> owners_;
};

}  // namespace ao::check

#endif  // AOSTORE_CHECK_OWNERS_H
