#include "host/descriptors.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include "core/descriptor.h"

namespace tavo {
namespace {

bool closes_on_exec(const Descriptor &descriptor) {
  return (fcntl(descriptor.get(), F_GETFD) & FD_CLOEXEC) != 0;
}

TEST(DescriptorsTest, SocketsCloseOnExecFromTheirOpening) {
  const Descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
  EXPECT_TRUE(closes_on_exec(listener));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto *const generic = reinterpret_cast<sockaddr *>(&address);
  ASSERT_EQ(bind(listener.get(), generic, size), 0);
  ASSERT_EQ(listen(listener.get(), 1), 0);
  ASSERT_EQ(getsockname(listener.get(), generic, &size), 0);
  const Descriptor peer(socket(AF_INET, SOCK_STREAM, 0));
  ASSERT_EQ(connect(peer.get(), generic, size), 0);
  const Descriptor accepted(accept(listener.get(), nullptr, nullptr));
  EXPECT_TRUE(closes_on_exec(accepted));
}

TEST(DescriptorsTest, FilesOpenedBeforeAreMarked) {
  const Descriptor file(open("/dev/null", O_RDONLY));
  ASSERT_FALSE(closes_on_exec(file));
  close_descriptors_on_exec();
  EXPECT_TRUE(closes_on_exec(file));
}

TEST(DescriptorsTest, TheStandardOnesStayOpenInTools) {
  close_descriptors_on_exec();
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    const int flags = fcntl(standard, F_GETFD);
    EXPECT_TRUE(flags < 0 || (flags & FD_CLOEXEC) == 0) << standard;
  }
}

}  // namespace
}  // namespace tavo
