// The conversion stand-in delivers frames on the converting thread unless
// UVC_TEST_CONVERSION_DELIVERY=own-thread asks for its later delivery from a
// thread of its own; ctest runs the frame-path suites both ways.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>

#include "conversion_testing.h"

namespace {

class ConversionDelivery : public testing::Environment {
public:
    void SetUp() override {
        const char* mode = std::getenv("UVC_TEST_CONVERSION_DELIVERY");
        if (mode != nullptr && std::strcmp(mode, "own-thread") == 0)
            convfact_standin::setDelivery(convfact_standin::Delivery::FromOwnThread);
    }
};

testing::Environment* const registered = testing::AddGlobalTestEnvironment(new ConversionDelivery);

}  // namespace
