// Copies to and from file mappings that a fault cannot kill. A mapped page
// that the system cannot back raises SIGBUS when touched: the file was cut
// short by another process, or the disk failed to deliver the page. Inside a
// copy of ours the handler jumps back and the copy reports failure, so the
// caller falls back to plain I/O, which reports such a file as it is.
#if !defined(_WIN32)

#include <pthread.h>

#include <atomic>
#include <csetjmp>
#include <csignal>
#include <cstring>
#include <mutex>

#include "platform/copy_bytes.h"
#include "platform/files.h"
#include "platform/mapped_copy_posix.h"
#include "platform/piece_store.h"

namespace ao::platform {
namespace {

#if defined(__GNUC__)
#define AO_TLS_INITIAL_EXEC __attribute__((tls_model("initial-exec")))
#else
#define AO_TLS_INITIAL_EXEC
#endif

// Where a faulting copy of this thread resumes. Initial-exec so that the
// handler reaches it without a call that might allocate.
thread_local sigjmp_buf* volatile t_landing AO_TLS_INITIAL_EXEC = nullptr;
struct sigaction g_previous {};

void OnBusError(int signal, siginfo_t* info, void* context) {
  sigjmp_buf* landing = t_landing;
  if (landing != nullptr) {
    t_landing = nullptr;
    // The jump does not restore the signal mask (saving it would cost a
    // system call per copy), so the signal blocked for this handler is let
    // through again by hand.
    sigset_t bus;
    sigemptyset(&bus);
    sigaddset(&bus, SIGBUS);
    pthread_sigmask(SIG_UNBLOCK, &bus, nullptr);
    siglongjmp(*landing, 1);
  }
  // A fault outside our copies belongs to whoever handled SIGBUS before us.
  if ((g_previous.sa_flags & SA_SIGINFO) != 0 && g_previous.sa_sigaction != nullptr) {
    g_previous.sa_sigaction(signal, info, context);
  } else if (g_previous.sa_handler != SIG_DFL && g_previous.sa_handler != SIG_IGN) {
    g_previous.sa_handler(signal);
  } else {
    // The access that faulted repeats on return and meets the system's action.
    sigaction(SIGBUS, &g_previous, nullptr);
  }
}

}  // namespace

void PrepareMappedCopies() {
  static std::once_flag once;
  std::call_once(once, [] {
    struct sigaction action {};
    action.sa_sigaction = OnBusError;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(SIGBUS, &action, &g_previous);
  });
}

namespace {

// Runs a copy that touches a mapping; false when the mapping faulted.
template <typename Copy>
bool Guarded(const Copy& copy) {
  sigjmp_buf landing;
  if (sigsetjmp(landing, 0) != 0) return false;
  t_landing = &landing;
  std::atomic_signal_fence(std::memory_order_seq_cst);
  copy();
  std::atomic_signal_fence(std::memory_order_seq_cst);
  t_landing = nullptr;
  return true;
}

}  // namespace

bool CopyWithMapping(void* to, const void* from, size_t count) {
  return Guarded([&] { CopyBytes(to, from, count); });
}

bool StoreToView(void* to, const void* from, size_t count) {
  return Guarded([&] { StoreInPieces(to, from, count); });
}

bool VisitGuarded(void (*visitor)(void*, const unsigned char*, int64_t), void* context, const unsigned char* base,
                  int64_t held) {
  return Guarded([&] { visitor(context, base, held); });
}

}  // namespace ao::platform

#endif  // !_WIN32
