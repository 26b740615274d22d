#include "pipeline/FillDataTest.h"

namespace hidl_uvc_client {

FillDataTest::FillDataTest() : payload("0123456789abcdefghijklmnopqrst"), position(0) {}

FillDataTest::~FillDataTest() = default;

}  // namespace hidl_uvc_client
