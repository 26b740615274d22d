#pragma once

#include <utility>
#include <vector>

#include "trevo/GBuffer.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// A frame converter, built in or provided by a plug-in.
class TREVO_EXPORT ConverterInterface {
public:
    // The (input format, output format) pairs this converter handles.
    virtual std::vector<std::pair<int, int>> supportedFormats() const = 0;
    // Converts `frame` to `outFormat` and reports each produced frame through
    // the converter's ConverterCbInterface before returning. 0 on success.
    virtual int convert(GBuffer* frame, int outFormat) = 0;
    virtual ~ConverterInterface();
};

}  // namespace trevo
