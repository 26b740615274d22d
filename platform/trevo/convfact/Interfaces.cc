// Out-of-line destructors: they anchor the interfaces' virtual tables in
// this library.

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"
#include "trevo/FrameReceiver.h"

namespace trevo {

FrameReceiver::~FrameReceiver() = default;
ConverterCbInterface::~ConverterCbInterface() = default;
ConverterInterface::~ConverterInterface() = default;

}  // namespace trevo
