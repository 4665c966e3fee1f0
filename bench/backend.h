// The one small interface every compared store is driven through: a container
// holding a tree of folders and named byte streams. A workload written against
// it issues the same operations, with the same bytes, to every backend.
#ifndef AOSTORE_BENCH_BACKEND_H
#define AOSTORE_BENCH_BACKEND_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

namespace bench {

// Every failure of a backend (a refused call, a short transfer, an I/O error)
// is thrown as this; the workload is then reported as failed for that backend.
class BackendError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// A stream being written: bytes are appended at its end. Closed when destroyed.
class StreamWriter {
 public:
  virtual ~StreamWriter() = default;
  virtual void Append(const unsigned char* data, std::size_t size) = 0;
};

// A stream being read. Closed when destroyed.
class StreamReader {
 public:
  virtual ~StreamReader() = default;
  // Next bytes from the current position; fewer than size only at the end.
  virtual std::size_t Read(unsigned char* out, std::size_t size) = 0;
  // Bytes at offset (the current position afterwards is unspecified).
  virtual std::size_t ReadAt(std::uint64_t offset, unsigned char* out, std::size_t size) = 0;
};

// The top level of a container, or a folder in it. Names are unique within a
// folder; creating an existing name fails.
class Folder {
 public:
  virtual ~Folder() = default;
  virtual std::unique_ptr<StreamWriter> CreateStream(const std::string& name) = 0;
  virtual std::unique_ptr<StreamReader> OpenStream(const std::string& name) = 0;
  virtual std::unique_ptr<Folder> CreateFolder(const std::string& name) = 0;
  virtual std::unique_ptr<Folder> OpenFolder(const std::string& name) = 0;
  // The name index on its own: a child without data, and finding a child.
  virtual void CreateEmpty(const std::string& name) = 0;
  virtual bool Contains(const std::string& name) = 0;
};

// One open container. Destroying it closes it; everything written is then in
// the host file(s), without any flush to the device (no backend syncs).
class Container {
 public:
  virtual ~Container() = default;
  virtual Folder& Root() = 0;
};

enum class Access { kRead, kWrite };

class Backend {
 public:
  virtual ~Backend() = default;
  virtual std::string Name() const = 0;
  // The configuration that matters for the numbers, printed with the results.
  virtual std::string Describe() const = 0;
  // A new empty container at path (replacing whatever is there).
  virtual std::unique_ptr<Container> Create(const std::string& path) = 0;
  // The existing container at path. Several may be open on one path at once,
  // one per thread, as long as each thread writes only streams of its own.
  virtual std::unique_ptr<Container> Open(const std::string& path, Access access) = 0;
  virtual void Remove(const std::string& path) = 0;
};

std::unique_ptr<Backend> MakeAostoreBackend(std::uint32_t minBlockCapacity);
std::unique_ptr<Backend> MakeSqliteBackend();
std::unique_ptr<Backend> MakeFsdirBackend();
// start: the file offset of the first byte written (0: page-aligned).
std::unique_ptr<Backend> MakeRawfileBackend(std::uint64_t start);

}  // namespace bench

#endif  // AOSTORE_BENCH_BACKEND_H
