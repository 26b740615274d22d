#pragma once

#include <android/hardware_buffer.h>

// Receives the hardware buffer that FlatTestBuffer::lockBuffer locked.
struct FlatBuffer {
    AHardwareBuffer* hardwareBuffer = nullptr;  // not owned
};
