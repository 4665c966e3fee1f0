// The names open in a container or a folder object, each with its open count
// and the mode of its first opener, which decides whether later opens may
// share it. A name may be listed more than once (an entry is added without
// looking); finding and closing take its earliest entry. Every operation is
// one hash look-up, however many streams are open at once.
#ifndef AOSTORE_OPEN_STREAM_LIST_H
#define AOSTORE_OPEN_STREAM_LIST_H

#include <cstdint>
#include <deque>
#include <memory>
#include <string>
#include <unordered_map>

#include "aostore/types.h"

namespace ao {

class OpenStreamList {
 public:
  // The earliest entry of name; null when it is not open.
  t_OpenStream* Find(const char* name) const {
    auto found = byName_.find(name);
    return found == byName_.end() ? nullptr : found->second.front().get();
  }
  // A new entry opened once with mode.
  t_OpenStream* Add(const char* name, uint32_t mode) {
    auto& entries = byName_[name];
    entries.push_back(std::make_unique<t_OpenStream>(t_OpenStream{name, 1, mode}));
    return entries.back().get();
  }
  // Closes the earliest entry of name once (it goes at its last close); the
  // count it had before, or -1 when the name is not open.
  int Close(const char* name) {
    auto found = byName_.find(name);
    if (found == byName_.end()) return -1;
    t_OpenStream& open = *found->second.front();
    const int before = static_cast<int>(open.count);
    if (open.count > 1) {
      --open.count;
    } else if (found->second.size() > 1) {
      found->second.pop_front();
    } else {
      byName_.erase(found);
    }
    return before;
  }

 private:
  std::unordered_map<std::string, std::deque<std::unique_ptr<t_OpenStream>>> byName_;
};

}  // namespace ao

#endif  // AOSTORE_OPEN_STREAM_LIST_H
