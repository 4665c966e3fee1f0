// SQLite used as an application file format, configured the way a careful
// application would for this job: a streams table (the tree) and a chunks
// table keyed by (stream, seq), one row per append, so that appending never
// rewrites a blob; seq is the chunk's byte offset in its stream, so a random
// read is one index seek. Prepared statements are made once per connection and
// reused; each phase (an open-to-close of the container) is one transaction.
// Like aostore it does not sync: synchronous=OFF and no rollback journal.
#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <string_view>

#include "backend.h"

namespace bench {
namespace {

constexpr int kCacheKib = 64 * 1024;
constexpr int kBusyTimeoutMs = 10 * 60 * 1000;

class Statement {
 public:
  Statement(sqlite3* db, const char* sql) {
    if (sqlite3_prepare_v3(db, sql, -1, SQLITE_PREPARE_PERSISTENT, &stmt_, nullptr) != SQLITE_OK)
      throw BackendError(std::string("sqlite: prepare: ") + sqlite3_errmsg(db));
  }
  ~Statement() { sqlite3_finalize(stmt_); }
  Statement(const Statement&) = delete;
  Statement& operator=(const Statement&) = delete;
  sqlite3_stmt* get() const { return stmt_; }

 private:
  sqlite3_stmt* stmt_ = nullptr;
};

// Resets a statement when the step that used it is done.
class StepScope {
 public:
  explicit StepScope(const Statement& statement) : stmt_(statement.get()) {}
  ~StepScope() {
    sqlite3_reset(stmt_);
    sqlite3_clear_bindings(stmt_);
  }
  StepScope(const StepScope&) = delete;
  StepScope& operator=(const StepScope&) = delete;

 private:
  sqlite3_stmt* stmt_;
};

struct Chunk {
  std::int64_t seq = 0;
  const unsigned char* data = nullptr;
  std::int64_t size = 0;
};

Chunk ChunkOfRow(sqlite3_stmt* stmt) {
  Chunk chunk;
  chunk.seq = sqlite3_column_int64(stmt, 0);
  chunk.data = static_cast<const unsigned char*>(sqlite3_column_blob(stmt, 1));
  chunk.size = sqlite3_column_bytes(stmt, 1);
  return chunk;
}

// Copies from chunk the bytes at [position, position + size); returns the count.
std::size_t CopyFromChunk(const Chunk& chunk, std::int64_t position, unsigned char* out, std::size_t size) {
  const std::int64_t start = position - chunk.seq;
  if (start < 0 || start >= chunk.size) return 0;
  const auto count = static_cast<std::size_t>(std::min<std::int64_t>(chunk.size - start, static_cast<std::int64_t>(size)));
  std::memcpy(out, chunk.data + start, count);
  return count;
}

class Database {
 public:
  Database(const std::string& path, bool create) {
    const int flags = SQLITE_OPEN_READWRITE | SQLITE_OPEN_NOMUTEX | (create ? SQLITE_OPEN_CREATE : 0);
    if (sqlite3_open_v2(path.c_str(), &db_, flags, nullptr) != SQLITE_OK) {
      const std::string message = db_ ? sqlite3_errmsg(db_) : "out of memory";
      sqlite3_close(db_);
      throw BackendError("sqlite: open " + path + ": " + message);
    }
    sqlite3_busy_timeout(db_, kBusyTimeoutMs);
    Exec("PRAGMA journal_mode=OFF");
    Exec("PRAGMA synchronous=OFF");
    Exec(("PRAGMA cache_size=-" + std::to_string(kCacheKib)).c_str());
    if (create) {
      Exec(
          "CREATE TABLE IF NOT EXISTS streams(id INTEGER PRIMARY KEY, parent INTEGER NOT NULL, "
          "name TEXT NOT NULL, folder INTEGER NOT NULL, UNIQUE(parent, name))");
      Exec(
          "CREATE TABLE IF NOT EXISTS chunks(stream INTEGER NOT NULL, seq INTEGER NOT NULL, "
          "data BLOB NOT NULL, PRIMARY KEY(stream, seq))");
    }
    insertStream_ = std::make_unique<Statement>(db_, "INSERT INTO streams(parent, name, folder) VALUES(?1, ?2, ?3)");
    findStream_ = std::make_unique<Statement>(db_, "SELECT id, folder FROM streams WHERE parent = ?1 AND name = ?2");
    insertChunk_ = std::make_unique<Statement>(db_, "INSERT INTO chunks(stream, seq, data) VALUES(?1, ?2, ?3)");
    scanChunks_ = std::make_unique<Statement>(db_, "SELECT seq, data FROM chunks WHERE stream = ?1 ORDER BY seq");
    chunkAt_ = std::make_unique<Statement>(
        db_, "SELECT seq, data FROM chunks WHERE stream = ?1 AND seq <= ?2 ORDER BY seq DESC LIMIT 1");
    // IMMEDIATE: a second writer on the file waits here for the first one's
    // commit instead of failing later when both try to upgrade their locks.
    Exec("BEGIN IMMEDIATE");
  }

  ~Database() {
    insertStream_.reset();
    findStream_.reset();
    insertChunk_.reset();
    scanChunks_.reset();
    chunkAt_.reset();
    if (sqlite3_exec(db_, "COMMIT", nullptr, nullptr, nullptr) != SQLITE_OK)
      std::fprintf(stderr, "sqlite: commit failed: %s\n", sqlite3_errmsg(db_));
    sqlite3_close(db_);
  }

  Database(const Database&) = delete;
  Database& operator=(const Database&) = delete;

  // Inserts a tree entry; returns its id.
  std::int64_t InsertStream(std::int64_t parent, const std::string& name, bool folder) {
    StepScope scope(*insertStream_);
    sqlite3_stmt* stmt = insertStream_->get();
    sqlite3_bind_int64(stmt, 1, parent);
    sqlite3_bind_text(stmt, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
    sqlite3_bind_int(stmt, 3, folder ? 1 : 0);
    Check(sqlite3_step(stmt), SQLITE_DONE, "insert stream ", name);
    return sqlite3_last_insert_rowid(db_);
  }

  // The id of a tree entry, or -1; folder tells its kind.
  std::int64_t FindStream(std::int64_t parent, const std::string& name, bool& folder) {
    StepScope scope(*findStream_);
    sqlite3_stmt* stmt = findStream_->get();
    sqlite3_bind_int64(stmt, 1, parent);
    sqlite3_bind_text(stmt, 2, name.data(), static_cast<int>(name.size()), SQLITE_STATIC);
    const int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) return -1;
    Check(rc, SQLITE_ROW, "find stream ", name);
    folder = sqlite3_column_int(stmt, 1) != 0;
    return sqlite3_column_int64(stmt, 0);
  }

  void InsertChunk(std::int64_t stream, std::int64_t seq, const unsigned char* data, std::size_t size) {
    StepScope scope(*insertChunk_);
    sqlite3_stmt* stmt = insertChunk_->get();
    sqlite3_bind_int64(stmt, 1, stream);
    sqlite3_bind_int64(stmt, 2, seq);
    sqlite3_bind_blob(stmt, 3, data, static_cast<int>(size), SQLITE_STATIC);
    Check(sqlite3_step(stmt), SQLITE_DONE, "insert chunk");
  }

  // The scan statement is shared: one sequential reader at a time.
  sqlite3_stmt* BeginScan(std::int64_t stream) {
    if (scanning_) throw BackendError("sqlite: two sequential readers on one connection");
    scanning_ = true;
    sqlite3_bind_int64(scanChunks_->get(), 1, stream);
    return scanChunks_->get();
  }

  void EndScan() {
    sqlite3_reset(scanChunks_->get());
    sqlite3_clear_bindings(scanChunks_->get());
    scanning_ = false;
  }

  // Copies the bytes at position that lie in the chunk holding position.
  std::size_t ReadChunkAt(std::int64_t stream, std::int64_t position, unsigned char* out, std::size_t size) {
    StepScope scope(*chunkAt_);
    sqlite3_stmt* stmt = chunkAt_->get();
    sqlite3_bind_int64(stmt, 1, stream);
    sqlite3_bind_int64(stmt, 2, position);
    const int rc = sqlite3_step(stmt);
    if (rc == SQLITE_DONE) return 0;
    Check(rc, SQLITE_ROW, "read chunk");
    return CopyFromChunk(ChunkOfRow(stmt), position, out, size);
  }

  // Messages are built only on failure: the calls around them are timed.
  void Check(int rc, int expected, const char* what, std::string_view name = {}) {
    if (rc != expected)
      throw BackendError(std::string("sqlite: ") + what + std::string(name) + ": " + sqlite3_errmsg(db_));
  }

 private:
  void Exec(const char* sql) {
    if (sqlite3_exec(db_, sql, nullptr, nullptr, nullptr) != SQLITE_OK)
      throw BackendError(std::string("sqlite: ") + sql + ": " + sqlite3_errmsg(db_));
  }

  sqlite3* db_ = nullptr;
  std::unique_ptr<Statement> insertStream_, findStream_, insertChunk_, scanChunks_, chunkAt_;
  bool scanning_ = false;
};

class SqliteWriter : public StreamWriter {
 public:
  SqliteWriter(Database& db, std::int64_t stream) : db_(db), stream_(stream) {}

  void Append(const unsigned char* data, std::size_t size) override {
    db_.InsertChunk(stream_, length_, data, size);
    length_ += static_cast<std::int64_t>(size);
  }

 private:
  Database& db_;
  std::int64_t stream_;
  std::int64_t length_ = 0;
};

class SqliteReader : public StreamReader {
 public:
  SqliteReader(Database& db, std::int64_t stream) : db_(db), stream_(stream) {}
  ~SqliteReader() override {
    if (scan_) db_.EndScan();
  }

  // Steps through the chunks in order, as a cursor over the (stream, seq) index.
  std::size_t Read(unsigned char* out, std::size_t size) override {
    if (!scan_) scan_ = db_.BeginScan(stream_);
    std::size_t done = 0;
    while (done < size) {
      const std::size_t got = CopyFromChunk(chunk_, position_, out + done, size - done);
      if (got == 0) {
        if (atEnd_) break;
        const int rc = sqlite3_step(scan_);
        if (rc == SQLITE_DONE) {
          atEnd_ = true;
          break;
        }
        db_.Check(rc, SQLITE_ROW, "scan chunks");
        chunk_ = ChunkOfRow(scan_);
        continue;
      }
      done += got;
      position_ += static_cast<std::int64_t>(got);
    }
    return done;
  }

  std::size_t ReadAt(std::uint64_t offset, unsigned char* out, std::size_t size) override {
    std::size_t done = 0;
    while (done < size) {
      const std::size_t got =
          db_.ReadChunkAt(stream_, static_cast<std::int64_t>(offset + done), out + done, size - done);
      if (got == 0) break;
      done += got;
    }
    return done;
  }

 private:
  Database& db_;
  std::int64_t stream_;
  sqlite3_stmt* scan_ = nullptr;
  Chunk chunk_;
  std::int64_t position_ = 0;
  bool atEnd_ = false;
};

class SqliteFolder : public Folder {
 public:
  SqliteFolder(Database& db, std::int64_t id) : db_(db), id_(id) {}

  std::unique_ptr<StreamWriter> CreateStream(const std::string& name) override {
    return std::make_unique<SqliteWriter>(db_, db_.InsertStream(id_, name, false));
  }

  std::unique_ptr<StreamReader> OpenStream(const std::string& name) override {
    return std::make_unique<SqliteReader>(db_, Find(name, false));
  }

  std::unique_ptr<Folder> CreateFolder(const std::string& name) override {
    return std::make_unique<SqliteFolder>(db_, db_.InsertStream(id_, name, true));
  }

  std::unique_ptr<Folder> OpenFolder(const std::string& name) override {
    return std::make_unique<SqliteFolder>(db_, Find(name, true));
  }

  void CreateEmpty(const std::string& name) override { db_.InsertStream(id_, name, false); }

  bool Contains(const std::string& name) override {
    bool folder = false;
    return db_.FindStream(id_, name, folder) >= 0;
  }

 private:
  std::int64_t Find(const std::string& name, bool wantFolder) {
    bool folder = false;
    const std::int64_t id = db_.FindStream(id_, name, folder);
    if (id < 0 || folder != wantFolder) throw BackendError("sqlite: no such " + std::string(wantFolder ? "folder " : "stream ") + name);
    return id;
  }

  Database& db_;
  std::int64_t id_;
};

class SqliteContainer : public Container {
 public:
  SqliteContainer(const std::string& path, bool create) : db_(path, create), root_(db_, 0) {}
  Folder& Root() override { return root_; }

 private:
  Database db_;
  SqliteFolder root_;
};

class SqliteBackend : public Backend {
 public:
  std::string Name() const override { return "sqlite"; }

  std::string Describe() const override {
    return std::string("SQLite ") + sqlite3_libversion() +
           ", journal_mode=OFF, synchronous=OFF, default page size, cache " + std::to_string(kCacheKib / 1024) +
           " MiB, one transaction per phase, prepared statements reused, chunks keyed by (stream, seq)";
  }

  std::unique_ptr<Container> Create(const std::string& path) override {
    Remove(path);
    return std::make_unique<SqliteContainer>(path, true);
  }

  std::unique_ptr<Container> Open(const std::string& path, Access) override {
    return std::make_unique<SqliteContainer>(path, false);
  }

  void Remove(const std::string& path) override {
    std::remove(path.c_str());
    std::remove((path + "-journal").c_str());
    std::remove((path + "-wal").c_str());
    std::remove((path + "-shm").c_str());
  }
};

}  // namespace

std::unique_ptr<Backend> MakeSqliteBackend() { return std::make_unique<SqliteBackend>(); }

}  // namespace bench
