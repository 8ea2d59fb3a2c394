// Hosts the suite's test classes on GoogleTest the way a class-based unit-test runner does: one
// object per test class, made before its first method and destroyed after its last, and
// Assert::IsTrue, which fails and ends the running method when its condition is false.
//
//   namespace Processing {
//   TEST_CLASS(Median16U) {
//    public:
//     TEST_METHOD(CompareImageJ) { Assert::IsTrue(...); }
//   };
//   }
//
// A method is listed as "<Namespace>.<Class>.<Method>" (GoogleTest filters reserve ':').
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <typeinfo>

namespace harness {

// Thrown by a failed Assert::IsTrue; it ends the method and is swallowed by the host, which has
// already recorded the failure. Not derived from std::exception so that test code never catches
// it by accident.
struct AssertionFailed {};

class Assert {
 public:
  // The default arguments capture the caller's location for the failure report only.
  static void IsTrue(bool condition, const char* file = __builtin_FILE(),
                     int line = __builtin_LINE());
};

// "Processing::Median16U" for the class Processing::Median16U.
std::string QualifiedClassName(const std::type_info& type);

template <class Class>
class ClassFixture : public ::testing::Test {
 public:
  static void SetUpTestSuite() { instance_ = std::make_unique<Class>(); }
  static void TearDownTestSuite() { instance_.reset(); }

 protected:
  static Class* Instance() { return instance_.get(); }

 private:
  static inline std::unique_ptr<Class> instance_;
};

template <class Class>
class MethodTest : public ClassFixture<Class> {
 public:
  explicit MethodTest(void (Class::*method)()) : method_(method) {}

  void TestBody() override {
    Class* object = ClassFixture<Class>::Instance();
    ASSERT_NE(object, nullptr) << "the test class object was not constructed";
    try {
      (object->*method_)();
    } catch (const AssertionFailed&) {
    }
  }

 private:
  void (Class::*method_)();
};

std::string SuiteNameOf(const std::type_info& type);

template <class Class>
bool RegisterMethod(const char* name, void (Class::*method)(), const char* file, int line) {
  ::testing::RegisterTest(
      SuiteNameOf(typeid(Class)).c_str(), name, nullptr, nullptr, file, line,
      [method]() -> ClassFixture<Class>* { return new MethodTest<Class>(method); });
  return true;
}

template <class Class>
class TestClass {
 protected:
  using ThisClass = Class;
};

}  // namespace harness

#define TEST_CLASS(className) class className : public ::harness::TestClass<className>

// The registrar's constructor body is a complete-class context, so it may name the method that
// is declared right after it.
#define TEST_METHOD(methodName)                                                           \
  struct methodName##_Registrar {                                                         \
    methodName##_Registrar() {                                                            \
      ::harness::RegisterMethod<ThisClass>(#methodName, &ThisClass::methodName, __FILE__, \
                                           __LINE__);                                     \
    }                                                                                     \
  };                                                                                      \
  static inline const methodName##_Registrar methodName##_registrar_{};                   \
                                                                                          \
 public:                                                                                  \
  void methodName()
