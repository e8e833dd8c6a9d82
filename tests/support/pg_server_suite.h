// PgServerSuite: the fixture of test suites that share one PostgreSQL server of their own.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "tests/support/pg_server.h"

namespace trovix::testing {

// A test suite sharing one server, started once; its tests skip with the reason when the
// server cannot be had.
class PgServerSuite : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { server_ = PgTestServer::Start(&why_).release(); }
  static void TearDownTestSuite() {
    delete server_;
    server_ = nullptr;
  }
  void SetUp() override {
    if (!server_) GTEST_SKIP() << why_;
  }

  static inline PgTestServer* server_ = nullptr;
  static inline std::string why_;
};

}  // namespace trovix::testing
