// Waiting in the event loop for a condition, failing the test when it does not come. Qt's
// QTRY_VERIFY and QTRY_COMPARE report to QtTest's own log and then only return: under
// GoogleTest a test that used them passed whatever happened.
#pragma once

#include <gtest/gtest.h>

#include <QTest>

// Waits up to `ms` for `cond`; a fatal failure naming it otherwise.
#define WAIT_UNTIL_FOR(cond, ms) \
  ASSERT_TRUE(QTest::qWaitFor([&] { return static_cast<bool>(cond); }, ms)) << "waited for: " #cond
#define WAIT_UNTIL(cond) WAIT_UNTIL_FOR(cond, 5000)
// Waits up to `ms` for `actual` to equal `expected`; the two values are printed otherwise.
#define WAIT_EQ_FOR(actual, expected, ms)                                  \
  do {                                                                     \
    (void)QTest::qWaitFor([&] { return (actual) == (expected); }, ms);     \
    ASSERT_EQ(actual, expected);                                           \
  } while (0)
#define WAIT_EQ(actual, expected) WAIT_EQ_FOR(actual, expected, 5000)
