#pragma once

#include "trevo/GBuffer.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// What a converter calls when it has produced a frame: the factory passes it
// on to the frame sinks.
class TREVO_EXPORT ConverterCbInterface {
public:
    virtual void onFrameConverted(GBuffer* frame) = 0;
    virtual ~ConverterCbInterface();
};

}  // namespace trevo
