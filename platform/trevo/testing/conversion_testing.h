#pragma once

// Test hooks of the conversion-library stand-in. Product code never includes
// this header.
//
// The stand-in's convert() routes a frame to the converter registered for
// (frame format, output format). A frame whose format already is the output
// format (the blob frames of the stream client) goes to the sinks unchanged.
// Delivery happens on the calling thread, before convert() returns.

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"

namespace convfact_standin {

using PluginMaker =
    std::function<std::shared_ptr<trevo::ConverterInterface>(trevo::ConverterCbInterface*)>;

// Plug-ins that PluginManager::loadPlugins of factories constructed later
// will load (none by default).
void addPlugin(const std::string& name, PluginMaker make);
void clearPlugins();

// convert() calls since the last resetCounters(), and frames handed to sinks.
size_t convertCalls();
size_t deliveredFrames();
void resetCounters();
// The next n convert() calls fail (return -1) without reaching any sink.
void failConversions(int n);

}  // namespace convfact_standin
