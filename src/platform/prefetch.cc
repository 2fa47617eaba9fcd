#include "platform/prefetch.h"

#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <utility>

#include "app/console.h"

namespace velmo {

namespace {

volatile uint64_t offset = 0;                  // address of the register in use; 0: none chosen
volatile int32_t cpu_model = 0;                // CpuInfo::model of the last find_offset
volatile uint64_t store_msr = 0;               // the register's value before the change
volatile std::sig_atomic_t store_cpu_id = -1;  // CPU whose register is changed; -1: none

constexpr uint64_t kMiscEnable = 0x1A0;
constexpr uint64_t kMiscFeatureControl = 0x1A4;
constexpr uint64_t kAmdPrefetchControl = 0xC0000108;

// IA32_MISC_ENABLE: hardware prefetcher (9), adjacent line (19), DCU (37) and IP (39) disables.
constexpr uint64_t kMiscEnableOff = 0xA000080200;
// Bits 0-3: on Intel L2 hardware, L2 adjacent line, L1 DCU, L1 DCU IP; on AMD L1 stream, L1
// stride, L1 region, L2 stream. Bit 5: on AMD up/down.
constexpr uint64_t kPrefetchersOff = 0x2F;
// Models 0xAD and 0xAE add bits 6-8.
constexpr uint64_t kPrefetchersOffWide = 0x1EF;

// The device of the saved register, locked: another run would take a changed value for the one to
// put back. -1: none is. The kernel lets the lock go however the run ends.
volatile std::sig_atomic_t locked = -1;

class MsrFile {
 public:
  explicit MsrFile(int cpu) {
    char path[100];
    const int length = std::snprintf(path, sizeof path, MSR_PATH, cpu);
    if (length > 0 && static_cast<size_t>(length) < sizeof path) {
      fd_ = open(path, O_RDWR | O_CLOEXEC);
    }
  }
  ~MsrFile() {
    if (fd_ >= 0) close(fd_);
  }
  MsrFile(const MsrFile&) = delete;
  MsrFile& operator=(const MsrFile&) = delete;

  bool IsOpen() const { return fd_ >= 0; }
  // 0, or the reason; EWOULDBLOCK: another run has the lock.
  int Lock() const { return flock(fd_, LOCK_EX | LOCK_NB) == 0 ? 0 : errno; }
  // Leaves the descriptor, and its lock, to the caller.
  int Release() { return std::exchange(fd_, -1); }
  bool Read(uint64_t address, uint64_t& value) const {
    return pread(fd_, &value, sizeof value, static_cast<off_t>(address)) == sizeof value;
  }
  bool Write(uint64_t address, uint64_t value) const {
    return pwrite(fd_, &value, sizeof value, static_cast<off_t>(address)) == sizeof value;
  }

 private:
  int fd_ = -1;
};

bool fail(const char* message) {
  warn_from_handler(message);
  return false;
}

// Value that switches the prefetchers off. IA32_MISC_ENABLE holds more than prefetcher bits and
// keeps its others; the other two registers are overwritten.
uint64_t off_value(uint64_t old_value) {
  if (offset == kMiscEnable) return old_value | kMiscEnableOff;
  return cpu_model == 0xAD || cpu_model == 0xAE ? kPrefetchersOffWide : kPrefetchersOff;
}

// Nothing is changed.
void forget() {
  store_cpu_id = -1;
  if (locked != -1) close(locked);
  locked = -1;
}

}  // namespace

void find_offset(const CpuInfo& cpu) {
  cpu_model = cpu.model;
  if (cpu.vendor == CpuInfo::kIntel) {
    switch (cpu.model) {
      case 0x0F:
      case 0x16:
      case 0x17:
      case 0x1D:
        offset = kMiscEnable;
        break;
      default:
        offset = kMiscFeatureControl;
    }
  } else if (cpu.vendor == CpuInfo::kAmd) {
    offset = kAmdPrefetchControl;
  }
}

PrefetchRegister prefetch_register() { return {offset, off_value(0)}; }

bool save_prefetch(int cpu) {
  // What a register holds while it is changed is not worth saving.
  if (!rollback_msr()) return false;
  MsrFile msr(cpu);
  if (!msr.IsOpen() || offset == 0) return fail("Failed to access msr.\n");
  if (const int failure = msr.Lock(); failure != 0) {
    if (failure == EWOULDBLOCK) {
      return fail("Another run has switched the prefetchers of the CPU off.\n");
    }
    Warn() << "Failed to lock msr: " << std::strerror(failure) << '\n';
    return false;
  }
  uint64_t old_value = 0;
  if (!msr.Read(offset, old_value)) return fail("Failed to read msr.\n");
  store_msr = old_value;
  // Noted before the register is changed: a handler that comes between the two writes what is still
  // there.
  store_cpu_id = cpu;
  locked = msr.Release();
  return true;
}

bool switch_saved_off() {
  const uint64_t value = off_value(store_msr);
  if (pwrite(locked, &value, sizeof value, static_cast<off_t>(offset)) == sizeof value) return true;
  forget();
  return fail("Failed to write msr.\n");
}

bool disable_prefetch(int cpu) { return save_prefetch(cpu) && switch_saved_off(); }

bool rollback_msr() {
  const int cpu = store_cpu_id;
  if (cpu == -1) return true;
  const MsrFile msr(cpu);
  if (!msr.IsOpen() || offset == 0) return fail("Failed to access msr.\n");
  // A register that holds its old value needs no writing, and one that was never changed may be
  // one that takes none.
  uint64_t value = 0;
  const bool unchanged = msr.Read(offset, value) && value == store_msr;
  if (!unchanged && !msr.Write(offset, store_msr)) return fail("Failed to write msr.\n");
  forget();
  return true;
}

void restore_msr() {
  if (!rollback_msr()) warn_from_handler("Failed to rollback msr.\n");
}

}  // namespace velmo
