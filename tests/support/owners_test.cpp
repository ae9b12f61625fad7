// The owner of a descriptor: what it holds is closed exactly once, by whoever holds it
// last.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <utility>

#include "support/UniqueFd.h"

namespace {
bool IsOpenFd(int fd) { return ::fcntl(fd, F_GETFD) != -1; }
int NewFd() { return ::open("/dev/null", O_RDONLY | O_CLOEXEC); }
}  // namespace

TEST(UniqueFdTest, TheLastHolderClosesOnce) {
  const int a = NewFd();
  {
    UniqueFd one(a);
    UniqueFd two(std::move(one));
    EXPECT_FALSE(one.Valid());  // NOLINT(bugprone-use-after-move): the moved-from state is the point
    EXPECT_EQ(two.Get(), a);
    UniqueFd& self = two;
    two = std::move(self);  // no close of what it holds
    EXPECT_TRUE(IsOpenFd(a));
    const int b = NewFd();
    UniqueFd three(b);
    three = std::move(two);  // closes b, takes a
    EXPECT_FALSE(IsOpenFd(b));
    EXPECT_EQ(three.Get(), a);
    EXPECT_TRUE(IsOpenFd(a));
  }
  EXPECT_FALSE(IsOpenFd(a));

  const int c = NewFd();
  UniqueFd held(c);
  EXPECT_EQ(held.Release(), c);
  EXPECT_TRUE(IsOpenFd(c));
  held.Reset(c);
  EXPECT_TRUE(held.Close());
  EXPECT_FALSE(IsOpenFd(c));
  EXPECT_TRUE(held.Close());  // nothing held: nothing to fail
  // A descriptor closed behind the owner's back: its close reports the failure.
  UniqueFd stale(NewFd());
  ::close(stale.Get());
  EXPECT_FALSE(stale.Close());
}
