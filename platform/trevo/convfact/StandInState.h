#pragma once

// Counters, injected faults and the plug-in list shared by the conversion
// stand-in's classes and its test hooks.

#include <map>
#include <string>

#include "conversion_testing.h"
#include "trevo/ConverterCbInterface.h"
#include "trevo/GBuffer.h"

namespace convfact_standin {

// Plug-ins added by tests, by name.
std::map<std::string, PluginMaker> pluginMakers();
void countConvert();
void countDelivery();
// Consumes one injected failure; true when this convert() is to fail.
bool takeConversionFailure();

// Delivery::FromOwnThread: true when `factory` is to deliver `frame` now
// (it is on its delivery thread, or the mode is OnCallingThread); otherwise
// queues a copy on the delivery thread of the factory that owns `key` (its
// plug-in manager, which the factory destroys first) and returns false.
bool deliverNow(const void* key, trevo::ConverterCbInterface* factory, trevo::GBuffer* frame);
// The factory owning `key` is being destroyed: its queued frames go out and
// its delivery thread ends.
void endDeliveries(const void* key);

}  // namespace convfact_standin
