// Scripts as callables. The programs of these tests are CGI scripts: REQUEST_METHOD is set.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <tarn/serve.hpp>

namespace {

class Serve : public testing::Test {
 protected:
  Serve() { setenv("REQUEST_METHOD", "GET", 1); }
  ~Serve() override {
    unsetenv("REQUEST_METHOD");
    tarn_serve_prepare(nullptr);
  }
};

std::string steps;

int writeStep() {
  steps += "script ";
  return 4;
}

int prepareStep() {
  steps += "prepare ";
  return 0;
}

TEST_F(Serve, ReturnsWhatTheScriptReturns) {
  EXPECT_EQ(3, tarn::serve([] { return 3; }));
  EXPECT_EQ(0, tarn::serve([] { return 0; }));
}

TEST_F(Serve, ScriptThatReturnsNothingHasStatusZero) {
  bool called = false;
  EXPECT_EQ(0, tarn::serve([&called] { called = true; }));
  EXPECT_TRUE(called);
}

TEST_F(Serve, ScriptMayCaptureWhatCanOnlyBeMoved) {
  auto number = std::make_unique<int>(7);
  EXPECT_EQ(7, tarn::serve([number = std::move(number)] { return *number; }));
}

TEST_F(Serve, ScriptMayChangeItsCaptures) {
  EXPECT_EQ(2, tarn::serve([count = 1]() mutable { return ++count; }));
}

TEST_F(Serve, ScriptMayBeAFunctionObjectThatStaysUnchanged) {
  const std::function<int()> script = [] { return 5; };
  EXPECT_EQ(5, tarn::serve(script));
  EXPECT_EQ(5, script());
}

TEST_F(Serve, PreparationRunsBeforeTheScriptEvenIfBothHaveTheSameType) {
  steps.clear();
  tarn::serve_prepare(prepareStep);
  EXPECT_EQ(4, tarn::serve(writeStep));
  EXPECT_EQ("prepare script ", steps);
}

TEST_F(Serve, PreparationIsKeptAfterItsScope) {
  std::string text;
  {
    const std::string lake = "a name that is too long to be kept inside of the string";
    tarn::serve_prepare([&text, lake] { text = lake; });
  }
  EXPECT_EQ(0, tarn::serve([] {}));
  EXPECT_EQ("a name that is too long to be kept inside of the string", text);
}

TEST_F(Serve, FailedPreparationEndsTheProgramWithItsStatus) {
  bool called = false;
  tarn::serve_prepare([] { return 6; });
  EXPECT_EQ(6, tarn::serve([&called] { called = true; }));
  EXPECT_FALSE(called);
}

TEST_F(Serve, HttpProxyIsGone) {
  setenv("HTTP_PROXY", "http://lake.example", 1);
  EXPECT_EQ(0, tarn::serve([] { return std::getenv("HTTP_PROXY") ? 1 : 0; }));
}

using ServeDeathTest = Serve;

TEST_F(ServeDeathTest, UncaughtExceptionEndsTheProcess) {
  EXPECT_EXIT(tarn::serve([] { throw std::runtime_error("no such lake"); }),
              testing::KilledBySignal(SIGABRT), "no such lake");
}

}  // namespace
