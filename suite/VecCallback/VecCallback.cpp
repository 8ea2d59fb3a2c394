// Test class of the Callback namespace: registering, withdrawing and notifying named callbacks.
#include <functional>
#include <string>

#include "Harness.h"
#include "callback/Callback.h"

using harness::Assert;

namespace {

using Registry = CCallback<std::function<void(const int&, float*)>>;

void ScaleBy1_5(const int& value, float* result) {
  if (result != nullptr) *result = static_cast<float>(value) * 1.5f;
}

void ScaleBy2_5(const int& value, float* result) {
  if (result != nullptr) *result = static_cast<float>(value) * 2.5f;
}

Registry::Function BindF1() {
  return std::bind(ScaleBy1_5, std::placeholders::_1, std::placeholders::_2);
}

Registry::Function BindF2() {
  return std::bind(ScaleBy2_5, std::placeholders::_1, std::placeholders::_2);
}

}  // namespace

namespace Callback {

// The formatter does not recognise the test-class macros as class definitions.
// clang-format off
TEST_CLASS(Test_Callback) {
 public:
  TEST_METHOD(Register) {
    Registry registry;
    Assert::IsTrue(registry.Size() == 0);
    registry.Register("f1", BindF1());
    Assert::IsTrue(registry.Size() == 1);
    registry.Register("f1", BindF1());
    Assert::IsTrue(registry.Size() == 1);
    registry.Register("f2", BindF2());
    Assert::IsTrue(registry.Size() == 2);
  }

  TEST_METHOD(UnRegister) {
    Registry registry;
    registry.Register("f1", BindF1());
    registry.Register("f2", BindF2());
    Assert::IsTrue(registry.Size() == 2);
    registry.UnRegister("f1");
    Assert::IsTrue(registry.Size() == 1);
    registry.UnRegister("f1");
    Assert::IsTrue(registry.Size() == 1);
    registry.UnRegister("f2");
    Assert::IsTrue(registry.Size() == 0);
  }

  TEST_METHOD(Notify) {
    Registry registry;
    float result = 0.0f;
    registry.Register("f1", BindF1());
    Assert::IsTrue(registry.Size() == 1);
    registry.Notify(2, &result);
    Assert::IsTrue(result == 3.0f);
    registry.UnRegister("f1");
    registry.Register("f2", BindF2());
    Assert::IsTrue(registry.Size() == 1);
    registry.Notify(2, &result);
    Assert::IsTrue(result == 5.0f);
  }
};
// clang-format on

}  // namespace Callback
