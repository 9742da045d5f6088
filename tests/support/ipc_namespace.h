// For tests: System V objects of their own.
#pragma once

#include <gtest/gtest.h>
#include <sched.h>

namespace veltrancord {

// Tests with fixed keys would meet the objects of a service that runs on the same machine, and of
// one another.
class ipc_namespace : public testing::Test {
  protected:
    void SetUp() override {
        if (::unshare(CLONE_NEWIPC) != 0 && ::unshare(CLONE_NEWUSER | CLONE_NEWIPC) != 0) {
            GTEST_SKIP() << "no namespace of its own can be had here";
        }
    }
};

}  // namespace veltrancord
