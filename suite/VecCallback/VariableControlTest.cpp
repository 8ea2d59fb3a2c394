// Test classes of the Controller namespace: the variable controller's sliding history,
// prediction, validation delay and regulation verdicts, and the set-once value.
#include <chrono>
#include <cstdint>
#include <thread>

#include "Harness.h"
#include "controller/SetOnce.h"
#include "controller/VariableController.h"

using harness::Assert;

namespace {

void SleepSeconds(int seconds) { std::this_thread::sleep_for(std::chrono::seconds(seconds)); }

void SleepMilliseconds(int milliseconds) {
  std::this_thread::sleep_until(std::chrono::steady_clock::now() +
                                std::chrono::milliseconds(milliseconds));
}

// Feeds n + 1 readings one unit apart from start toward end, 10 ms apart, waits n * 10 ms and
// returns the prediction.
double Ramp(CVariableController<float>& controller, float start, float end, float target, int n,
            float tolerance) {
  controller.Target = target;
  controller.Limit = target;
  controller.Tolerance = tolerance;
  bool error = false;
  for (int i = 0; i <= n; ++i) {
    const float value =
        (end - start >= 1.0f) ? start + static_cast<float>(i) : start - static_cast<float>(i);
    controller.Insert(value, error);
    SleepMilliseconds(10);
  }
  SleepMilliseconds(n * 10);
  return controller.Predict();
}

// Every regulation test gives the regulation half a second (the delay is in minutes), counted
// from the moment the levels are set.
void SetUpRegulation(CVariableController<float>& controller, float target, float tolerance,
                     float limit) {
  controller.Target = target;
  controller.Tolerance = tolerance;
  controller.Limit = limit;
  controller.RegulationDelay = 0.008333333333333333;
  controller.RegulationStartTime = CVariableController<float>::SteadyNow();
}

}  // namespace

namespace Controller {

// The formatter does not recognise the test-class macros as class definitions.
// clang-format off
TEST_CLASS(Test_VariableController) {
 public:
  TEST_METHOD(Insert) {
    CVariableController<float> controller(3);
    controller.Target = -10.0f;
    controller.Tolerance = 0.5f;
    controller.Limit = -10.0f;
    bool error = false;
    Assert::IsTrue(controller.History.size() == 0);
    Assert::IsTrue(!controller.Insert(1.0f, error));
    Assert::IsTrue(controller.History.size() == 1);
    Assert::IsTrue(!controller.Insert(2.0f, error));
    Assert::IsTrue(controller.History.size() == 2);
    Assert::IsTrue(!controller.Insert(3.0f, error));
    Assert::IsTrue(controller.History.size() == 3);
    Assert::IsTrue(!controller.Insert(4.0f, error));
    Assert::IsTrue(controller.History.size() == 3);
  }

  TEST_METHOD(Resize) {
    CVariableController<float> controller(10);
    controller.Target = 10.0f;
    controller.Tolerance = 0.5f;
    controller.Limit = 10.0f;
    bool error = false;
    for (int i = 0; i < 10; ++i) controller.Insert(static_cast<float>(i), error);
    for (int i = 0; i < 10; ++i) {
      controller.Insert(static_cast<float>(i), error);
      Assert::IsTrue(controller.History.size() == 10);
    }
  }

  TEST_METHOD(ReturnValue) {
    CVariableController<float> controller(10);
    controller.Target = -10.0f;
    controller.Tolerance = 2.0f;
    controller.Limit = -10.0f;
    bool error = false;
    for (int i = 0; i < 10; ++i) controller.Insert(static_cast<float>(i), error);
    for (int k = 0; k > -10; --k) {
      const bool verdict = controller.Insert(static_cast<float>(k) - 0.5f, error);
      Assert::IsTrue(controller.History.size() == 10);
      if (k < -7) {
        Assert::IsTrue(verdict);
      } else {
        Assert::IsTrue(!verdict);
      }
    }
  }

  TEST_METHOD(Predict_empty) {
    CVariableController<float> controller(10);
    Assert::IsTrue(controller.Predict() < 0.0);
  }

  TEST_METHOD(Predict_Single) {
    CVariableController<float> controller(10);
    bool error = false;
    controller.Insert(1.0f, error);
    Assert::IsTrue(controller.Predict() < 0.0);
  }

  TEST_METHOD(Predict_Infinite_1) {
    CVariableController<float> controller(10);
    controller.Target = 10.0f;
    controller.Tolerance = 0.5f;
    controller.Limit = 10.0f;
    bool error = false;
    controller.Insert(5.0f, error);
    SleepMilliseconds(10);
    controller.Insert(4.0f, error);
    SleepMilliseconds(10);
    Assert::IsTrue(controller.Predict() < 0.0);
  }

  TEST_METHOD(Predict_Infinite_2) {
    CVariableController<float> controller(10);
    controller.Target = 10.0f;
    controller.Tolerance = 0.5f;
    controller.Limit = 10.0f;
    bool error = false;
    controller.Insert(12.0f, error);
    SleepMilliseconds(10);
    controller.Insert(15.0f, error);
    SleepMilliseconds(10);
    Assert::IsTrue(controller.Predict() < 0.0);
  }

  TEST_METHOD(Predict_Rising_1) {
    CVariableController<float> controller(10);
    const double first = Ramp(controller, 0.0f, 10.0f, 10.0f, 3, 2.0f);
    SleepMilliseconds(10);
    Assert::IsTrue(first > controller.Predict());
  }

  TEST_METHOD(Predict_Rising_2) {
    CVariableController<float> controller(40);
    const double first = Ramp(controller, 0.0f, 40.0f, 40.0f, 20, 2.0f);
    SleepMilliseconds(10);
    Assert::IsTrue(first > controller.Predict());
  }

  TEST_METHOD(Predict_Falling_1) {
    CVariableController<float> controller(40);
    const double first = Ramp(controller, 80.0f, 0.0f, 40.0f, 12, 2.0f);
    SleepMilliseconds(10);
    Assert::IsTrue(first > controller.Predict());
  }

  TEST_METHOD(Predict_Falling_2) {
    CVariableController<float> controller(60);
    const double first = Ramp(controller, 120.0f, 0.0f, 60.0f, 20, 2.0f);
    SleepMilliseconds(10);
    Assert::IsTrue(first > controller.Predict());
  }

  TEST_METHOD(Delay_Assignement) {
    CVariableController<float> controller(10);
    controller.ValidationDelay = 1.0000000474974513;
    // Held as a double, not rounded to single precision.
    Assert::IsTrue(controller.ValidationDelay == 1.0000000474974513);
    // The delay counts from construction until a reading arrives.
    Assert::IsTrue(!controller.IsValidationDelayElapsed());
    Assert::IsTrue(controller.History.empty());
  }

  TEST_METHOD(Delay_Validation) {
    CVariableController<float> controller(10);
    controller.ValidationDelay = 0.050000002374872565;
    bool error = false;
    controller.Insert(0.0f, error);
    Assert::IsTrue(!controller.IsValidationDelayElapsed());
    SleepMilliseconds(10);
    Assert::IsTrue(!controller.IsValidationDelayElapsed());
    SleepMilliseconds(50);
    Assert::IsTrue(controller.IsValidationDelayElapsed());
    controller.Insert(0.0f, error);
    Assert::IsTrue(!controller.IsValidationDelayElapsed());
  }

  TEST_METHOD(Delay_Regulation) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 1.0f, -22.0f);
    bool error = false;
    Assert::IsTrue(!controller.Insert(0.0f, error));
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(0.0f, error));
    Assert::IsTrue(error);
    Assert::IsTrue(controller.Insert(-25.0f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation2) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 1.0f, -22.0f);
    bool error = false;
    Assert::IsTrue(!controller.Insert(0.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-25.0f, error));
    Assert::IsTrue(!error);
    SleepSeconds(2);
    Assert::IsTrue(controller.Insert(-25.0f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation_Warning) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 1.0f, -10.0f);
    bool error = false;
    controller.Insert(-6.0f, error);
    Assert::IsTrue(!controller.Insert(-6.0f, error));
    Assert::IsTrue(!error);
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(-11.0f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation_Warning2) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 1.0f, -10.0f);
    bool error = false;
    controller.Insert(-6.0f, error);
    Assert::IsTrue(!controller.Insert(-6.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-25.0f, error));
    Assert::IsTrue(!error);
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(-11.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-1.0f, error));
    Assert::IsTrue(error);
    Assert::IsTrue(controller.Insert(-1.0f, error));
    Assert::IsTrue(error);
    Assert::IsTrue(controller.Insert(-11.0f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation_Warning3) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 0.3f, -22.0f);
    bool error = false;
    controller.Insert(-24.59f, error);
    Assert::IsTrue(!controller.Insert(-24.63f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-24.68f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-24.71f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-24.63f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-24.68f, error));
    Assert::IsTrue(!error);
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(-24.68f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation_Error) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 1.0f, -10.0f);
    bool error = false;
    controller.Insert(-6.0f, error);
    controller.Insert(-6.0f, error);
    Assert::IsTrue(!controller.Insert(-6.0f, error));
    Assert::IsTrue(!error);
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(-1.0f, error));
    Assert::IsTrue(error);
  }

  TEST_METHOD(Delay_Regulation_HighThres) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 4.0f, -22.0f);
    bool error = false;
    Assert::IsTrue(!controller.Insert(0.0f, error));
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(0.0f, error));
    Assert::IsTrue(error);
    Assert::IsTrue(controller.Insert(-22.0f, error));
    Assert::IsTrue(!error);
  }

  TEST_METHOD(Delay_Regulation_BetweenThres) {
    CVariableController<float> controller(10);
    SetUpRegulation(controller, -25.0f, 0.3f, -22.0f);
    bool error = false;
    Assert::IsTrue(!controller.Insert(0.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-10.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-20.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(!controller.Insert(-24.63f, error));
    Assert::IsTrue(!error);
    SleepSeconds(1);
    Assert::IsTrue(controller.Insert(-24.63f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-22.0f, error));
    Assert::IsTrue(!error);
    Assert::IsTrue(controller.Insert(-21.0f, error));
    Assert::IsTrue(error);
  }
};

TEST_CLASS(SetOnce) {
 public:
  TEST_METHOD(Set_int) {
    CSetOnce<int> value;
    Assert::IsTrue(!value.IsSet());
    value.Set(10);
    Assert::IsTrue(value.IsSet());
  }

  TEST_METHOD(Set_float) {
    CSetOnce<float> value;
    Assert::IsTrue(!value.IsSet());
    value.Set(10.0f);
    Assert::IsTrue(value.IsSet());
  }

  TEST_METHOD(Set_bool) {
    CSetOnce<bool> value;
    Assert::IsTrue(!value.IsSet());
    value.Set(true);
    Assert::IsTrue(value.IsSet());
  }

  TEST_METHOD(SetGet) {
    CSetOnce<int> value;
    value.Set(10);
    Assert::IsTrue(!(value.Get() < 10));
    value.Set(20);
    Assert::IsTrue(value.Get() < 20);
    Assert::IsTrue(value.Get() == 10);
  }
};
// clang-format on

}  // namespace Controller
