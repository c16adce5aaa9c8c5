// What an operation of the writer may cost: no allocation ever, and no system call but for growth and
// shrinking.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <linux/filter.h>
#include <linux/seccomp.h>
#include <malloc.h>
#include <sys/prctl.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstddef>
#include <cstdlib>

#include "LoamSharedHwTables/Qumran3a/MplsIsemHwEm.h"
#include "tests/support/ChildProcess.h"
#include "tests/support/Sanitizers.h"
#include "tests/support/TestStore.h"

// Sanitizers have an allocator and system calls of their own.
#if !HWTABLES_ASAN && !HWTABLES_TSAN

namespace {

using namespace TestSupport;

std::atomic<std::uint64_t> allocations{0};

}  // namespace

// Every allocation of the program comes here: operator new calls it, too.
extern "C" void* __libc_malloc(std::size_t size);
extern "C" void* malloc(std::size_t size) {
  allocations.fetch_add(1, std::memory_order_relaxed);
  return __libc_malloc(size);
}

namespace {

struct Record : bcm88490_a0::MplsIsemHwEm::Entry {
  using Key = bcm88490_a0::MplsIsemHwEm::EntryKey;
  using Entry::Entry;
  Key const& key() const { return entryKey(); }
};

Record::Key keyOf(std::uint32_t number) { return {Orlo::U20(number & 0xfffff), Orlo::U1(0)}; }

constexpr std::uint32_t kRecords = 3000;

// Everything that neither grows nor shrinks the table.
void operate(WriterOf<Record>& writer) {
  WriterOf<Record>::Value value;
  Vault::IterHint hint;
  bool found = false;
  for (std::uint32_t number = 0; number < kRecords; ++number) {
    writer.write(Record(keyOf(number)), true);
    writer.write(Record(keyOf(number)), false);
    writer.lookup(keyOf(number), found, &value);
    writer.lookup(keyOf(number + 500000), found, nullptr);
    writer.directWrite(Record(keyOf(number)));
    writer.directCommit();
    writer.markAndSweepFlag(keyOf(number), Vault::MarkAndSweepOperation::set);
    writer.remove(keyOf(number), value);
    writer.write(Record(keyOf(number)), true);
    writer.remove(keyOf(number), value);
    writer.directWrite(Record(keyOf(number)));
    writer.directCommit();
  }
  for (bool more = writer.first(value, hint); more; more = writer.next(value.key(), value, hint)) {
  }
  writer.shrink();
}

void fill(WriterOf<Record>& writer) {
  for (std::uint32_t number = 0; number < kRecords; ++number) writer.write(Record(keyOf(number)), true);
}

TEST(WriterCost, OperationsAllocateNothing) {
  Store<Record> store(sharedDescriptor(100000));
  std::uint64_t const unrelated = allocations;
  delete new std::string(100, 'x');
  ASSERT_GT(allocations, unrelated);
  fill(*store);
  std::uint64_t const before = allocations;
  operate(*store);
  EXPECT_EQ(allocations, before);
}

// From here on the process is killed at any system call but the one that ends it.
void forbidSystemCalls() {
  sock_filter rules[] = {
      BPF_STMT(BPF_LD | BPF_W | BPF_ABS, offsetof(seccomp_data, nr)),
      BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, SYS_exit_group, 0, 1),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_ALLOW),
      BPF_STMT(BPF_RET | BPF_K, SECCOMP_RET_KILL_PROCESS),
  };
  sock_fprog const program{4, rules};
  if (::prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0) != 0 ||
      ::prctl(PR_SET_SECCOMP, SECCOMP_MODE_FILTER, &program) != 0) {
    std::_Exit(77);
  }
}

void operatesWithoutSystemCalls() {
  Mem::RootPath const root(storeHandler(), std::getenv("HWTABLES_TEST_TABLE"), true);
  WriterOf<Record> writer(storeHandler(), root, sharedDescriptor(100000));
  writer.initialize("test");
  fill(writer);
  forbidSystemCalls();
  operate(writer);
  ::syscall(SYS_exit_group, 0);
}
ChildRole const operatesRole("operatesWithoutSystemCalls", operatesWithoutSystemCalls);

void makesASystemCall() {
  forbidSystemCalls();
  ::syscall(SYS_getppid);
  ::syscall(SYS_exit_group, 0);
}
ChildRole const makesASystemCallRole("makesASystemCall", makesASystemCall);

TEST(WriterCost, OperationsMakeNoSystemCall) {
  ChildResult const forbidden = runChild("makesASystemCall");
  if (forbidden.exitCode == 77) GTEST_SKIP() << "the kernel filters no system calls";
  ASSERT_EQ(forbidden.signal, SIGSYS);
  StoreDir const folder;
  ChildResult const child = runChild("operatesWithoutSystemCalls", {{"HWTABLES_TEST_TABLE", folder.path()}});
  EXPECT_EQ(child.signal, 0);
  EXPECT_EQ(child.exitCode, 0) << child.errors();
}

}  // namespace

#endif
