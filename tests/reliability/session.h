// A realistic editing session on a container, step by step, with the means
// to tell afterwards which of its effects must be there.
#ifndef AOSTORE_TESTS_RELIABILITY_SESSION_H
#define AOSTORE_TESTS_RELIABILITY_SESSION_H

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

class aoStorage;

namespace ao::test {

// Bytes of stream `name` from position `from` on: the same for every writer.
std::vector<unsigned char> StreamBytes(const std::string& name, int64_t from, int64_t count);

// What a finished step promises: a stream (a root stream or "folder/child")
// holding at least `length` bytes of StreamBytes(name, 0, ...), or an integer
// entry with its value.
struct Promise {
  std::string name;
  int64_t length = 0;
  bool entry = false;
  int value = 0;
};

struct SessionStep {
  std::string what;
  // Runs the step; true when every call reported success.
  std::function<bool(aoStorage&)> run;
  std::vector<Promise> promises;
};

// The steps of the session, in order. `round` varies names and sizes.
std::vector<SessionStep> MakeSession(int round);

// Checks one promise on an open container; an empty string when it holds,
// else what is wrong.
std::string CheckPromise(aoStorage& storage, const Promise& promise);

}  // namespace ao::test

#endif  // AOSTORE_TESTS_RELIABILITY_SESSION_H
