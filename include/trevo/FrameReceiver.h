#pragma once

#include "trevo/GBuffer.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// A sink of converted frames. The conversion library calls every registered
// sink with every frame it produces, on a thread of its choice; the frame is
// valid only during the call.
class TREVO_EXPORT FrameReceiver {
public:
    virtual void processBuffer(GBuffer* frame) const = 0;
    // Called before processBuffer, while the frame is still being prepared.
    virtual void preProcessBuffer(GBuffer* frame) const = 0;
    virtual ~FrameReceiver();
};

}  // namespace trevo
