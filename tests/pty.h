#ifndef TESTS_PTY_H
#define TESTS_PTY_H

// A pseudo terminal: the test has its master side and plays the other end of a line, or the user at a keyboard.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <stdlib.h>
#include <termios.h>
#include <unistd.h>

#include <string>

class PTY {
 public:
  PTY() : Master(posix_openpt(O_RDWR | O_NOCTTY)) {
    EXPECT_TRUE(grantpt(Master) == 0 && unlockpt(Master) == 0);
    Path = ptsname(Master);
    Slave = open(Path.c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC);
    EXPECT_GE(Slave, 0);
    fcntl(Master, F_SETFD, FD_CLOEXEC);
  }
  ~PTY() {
    close(Slave);
    close(Master);
  }
  PTY(const PTY&) = delete;
  PTY& operator=(const PTY&) = delete;

  void Send(const std::string& bytes) const {
    EXPECT_EQ(write(Master, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
  }

  // Collects what comes out of the slave side until that satisfies the condition.
  template <typename CONDITION>
  bool ReceiveUntil(CONDITION condition) {
    while (!condition(Received)) {
      pollfd entry = {Master, POLLIN, 0};
      char acBytes[256];
      const ssize_t numBytes = poll(&entry, 1, PATIENCE_MS) > 0 ? read(Master, acBytes, sizeof(acBytes)) : 0;
      if (numBytes <= 0) {
        return false;
      }
      Received.append(acBytes, static_cast<size_t>(numBytes));
    }
    return true;
  }

  termios Settings() const {
    termios settings = {};
    EXPECT_EQ(tcgetattr(Slave, &settings), 0);
    return settings;
  }

  static constexpr int PATIENCE_MS = 20000;

  int Master;
  int Slave;
  std::string Path;
  std::string Received;
};

#endif
