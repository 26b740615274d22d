// Death tests in the "threadsafe" style re-execute the test program. Under the
// emulator of a cross build the host cannot run that program itself, so the
// child is started through the emulator as well.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestEmulator.h"

namespace {

class EmulatedDeathTests : public testing::Environment {
public:
    void SetUp() override {
        if (uvc_test::kEmulator.empty()) {
            return;
        }
        std::vector<std::string> argv = uvc_test::kEmulator;
        for (const std::string& arg : testing::internal::GetArgvs()) {
            argv.push_back(arg);
        }
        testing::internal::SetInjectableArgvs(argv);
    }
};

// gtest owns the environment.
testing::Environment* const registered = testing::AddGlobalTestEnvironment(new EmulatedDeathTests);

}  // namespace
