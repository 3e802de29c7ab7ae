// Movable memory blocks, as hosts use them.
#include <cstring>
#include <vector>

#include "kxcore.h"
#include "platform.h"
#include "testutil.h"

using namespace testutil;

// A failing call's status, then cleared so that it does not block the next call.
#define EXPECT_FAIL(call, code) do { EXPECT_EQ((call), (code)); KXESCODE(0); } while (0)

class Memory : public EngineTest {};

TEST_F(Memory, BlocksHaveAZeroedMarginAndCountedLocks) {
  KXBLOCK b = 0;
  ASSERT_EQ(_KXMALLOC(&b, 0), 0);
  EXPECT_EQ(rv::plat::MemSize(b, false), 128u);
  unsigned char* p1 = nullptr;
  void* p2 = nullptr;
  ASSERT_EQ(_KXMLOCK(reinterpret_cast<void**>(&p1), b), 0);
  ASSERT_TRUE(_KXMLOCK(&p2, b) == 0 && p2 == p1);
  EXPECT_EQ(std::vector<uint8_t>(p1, p1 + 128), std::vector<uint8_t>(128, 0));
  EXPECT_EQ(rv::plat::MemFlags(b, false) & 0xFF, 2u);
  EXPECT_TRUE(_KXMFREE(b) == 0 && KXECODE() == 0);  // undoes both locks first
  void* p3 = reinterpret_cast<void*>(1);
  EXPECT_EQ(_KXMLOCK(&p3, b), KX_ERR_MEMLOCK);  // gone: never handed out again
  EXPECT_EQ(p3, nullptr);
  KXESCODE(3);
  EXPECT_EQ(_KXMFREE(b), 3);  // freeing again reports the current status
  KXESCODE(0);
}

TEST_F(Memory, ReallocationKeepsContentsAndZeroesGrowth) {
  KXBLOCK b = 0;
  ASSERT_EQ(_KXMALLOC(&b, 16), 0);
  char* p = nullptr;
  ASSERT_EQ(_KXMLOCK(reinterpret_cast<void**>(&p), b), 0);
  std::memset(p, 0xAA, 144);
  std::strcpy(p, "keep me");
  _KXMUNLOCK(b);
  KXBLOCK same = b;
  EXPECT_FAIL(_KXMRALLOC(&b, 0xFFFFFFF0u), KX_ERR_NOMEM);  // fails: the old block stays
  EXPECT_EQ(b, same);
  // Shrink, then grow: the regrown bytes are zero, not the old 0xAA.
  ASSERT_EQ(_KXMRALLOC(&b, 0), 0);
  ASSERT_EQ(_KXMRALLOC(&b, 5000), 0);
  ASSERT_EQ(_KXMLOCK(reinterpret_cast<void**>(&p), b), 0);
  EXPECT_STREQ(p, "keep me");
  for (int i = 128; i < 5128; ++i) ASSERT_EQ(p[i], 0) << i;
  // Large blocks live elsewhere; moving in, between and out of them keeps
  // the contents the same way.
  _KXMUNLOCK(b);
  for (uint32_t size : {6u << 20, 9u << 20, 100u}) {
    const uint32_t before = rv::plat::MemSize(b, false);
    ASSERT_EQ(_KXMRALLOC(&b, size), 0);
    ASSERT_EQ(_KXMLOCK(reinterpret_cast<void**>(&p), b), 0);
    EXPECT_STREQ(p, "keep me");
    const uint32_t now = size + 128;
    for (uint32_t i = before; i < now; i += 4093) ASSERT_EQ(p[i], 0) << size << " " << i;
    EXPECT_EQ(p[now - 1], 0);
    p[now - 1] = 'x';
    _KXMUNLOCK(b);
  }
  ASSERT_EQ(_KXMLOCK(reinterpret_cast<void**>(&p), b), 0);
  EXPECT_EQ(rv::plat::MemHandle(p), b);
  EXPECT_EQ(KXMFREE(p), 0);  // freed by its address
  EXPECT_FAIL(_KXMLOCK(reinterpret_cast<void**>(&p), b), KX_ERR_MEMLOCK);
}

TEST_F(Memory, LocalBlocksWrapTo16BitsAndAreTheirOwnFamily) {
  KXBLOCK b = 0;
  ASSERT_EQ(rv::LocalAlloc(&b, 65500), 0);
  EXPECT_EQ(rv::plat::MemSize(b, true), 92u);
  ASSERT_EQ(rv::LocalRealloc(&b, 100), 0);
  EXPECT_EQ(rv::plat::MemSize(b, true), 228u);
  void* p = nullptr;
  EXPECT_FAIL(_KXMLOCK(&p, b), KX_ERR_MEMLOCK);
  ASSERT_EQ(rv::LocalLock(&p, b), 0);
  EXPECT_EQ(rv::plat::MemHandle(p), KXBLOCK(0));  // only global blocks are found
  EXPECT_EQ(rv::LocalFree(b), 0);
}

TEST_F(Memory, BadArgumentsGiveStatuses) {
  EXPECT_FAIL(_KXMALLOC(nullptr, 10), KX_ERR_NULL);
  EXPECT_FAIL(_KXMLOCK(nullptr, 1), KX_ERR_NULL);
  KXBLOCK b = 0;
  EXPECT_FAIL(_KXMALLOC(&b, 0xFFFFFFFFu), KX_ERR_NOMEM);
  EXPECT_EQ(b, KXBLOCK(0));
  int onStack = 0;
  for (KXBLOCK forged : {KXBLOCK(0), KXBLOCK(1), KXBLOCK(0x12345678), ~KXBLOCK(0),
                         KXBLOCK(reinterpret_cast<uintptr_t>(&onStack))}) {
    void* p = nullptr;
    EXPECT_FAIL(_KXMLOCK(&p, forged), KX_ERR_MEMLOCK);
    EXPECT_EQ(InOrder({_KXMFREE(forged), _KXMUNLOCK(forged)}), 0);
    KXBLOCK f = forged;
    EXPECT_FAIL(_KXMRALLOC(&f, 10), KX_ERR_NOMEM);
  }
  EXPECT_EQ(InOrder({KXMFREE(&onStack), KXMFREE(nullptr)}), 0);
}
