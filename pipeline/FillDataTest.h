#pragma once

#include <cstdint>
#include <string>

namespace hidl_uvc_client {

// Fixed test payload; a stream hands frames over only while its handler holds
// one. Nothing reads the fields.
class FillDataTest {
public:
    FillDataTest();
    virtual ~FillDataTest();

    std::string payload;
    int32_t position;
};

}  // namespace hidl_uvc_client
