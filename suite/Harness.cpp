#include "Harness.h"

#include <cstdlib>
#include <iostream>
#include <memory>

#if defined(__GNUG__)
#include <cxxabi.h>
#endif

namespace harness {

void Assert::IsTrue(bool condition, const char* file, int line) {
  if (condition) return;
  ADD_FAILURE_AT(file, line) << "Assert::IsTrue failed";
  throw AssertionFailed{};
}

std::string QualifiedClassName(const std::type_info& type) {
#if defined(__GNUG__)
  int status = 0;
  std::unique_ptr<char, void (*)(void*)> demangled(
      abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
  if (status == 0 && demangled) return demangled.get();
  return type.name();
#else
  std::string name = type.name();  // MSVC: "class Processing::Median16U"
  const std::string prefix = "class ";
  if (name.compare(0, prefix.size(), prefix) == 0) name.erase(0, prefix.size());
  return name;
#endif
}

std::string SuiteNameOf(const std::type_info& type) {
  std::string name = QualifiedClassName(type);
  for (std::string::size_type at = name.find("::"); at != std::string::npos;
       at = name.find("::", at + 1)) {
    name.replace(at, 2, ".");
  }
  return name;
}

namespace {

// One verdict line per method and a closing "N passed, N failed" line, on top of GoogleTest's
// own report.
class VerdictPrinter : public ::testing::EmptyTestEventListener {
 public:
  void OnTestEnd(const ::testing::TestInfo& info) override {
    const bool passed = info.result()->Passed();
    (passed ? passed_ : failed_)++;
    std::cout << (passed ? "PASS " : "FAIL ") << info.test_suite_name() << "." << info.name()
              << std::endl;
  }
  void OnTestProgramEnd(const ::testing::UnitTest&) override {
    std::cout << passed_ << " passed, " << failed_ << " failed" << std::endl;
  }

 private:
  int passed_ = 0;
  int failed_ = 0;
};

}  // namespace

}  // namespace harness

int main(int argc, char** argv) {
  ::testing::InitGoogleTest(&argc, argv);
  ::testing::UnitTest::GetInstance()->listeners().Append(new harness::VerdictPrinter);
  return RUN_ALL_TESTS();
}
