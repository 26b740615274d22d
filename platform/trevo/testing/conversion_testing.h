#pragma once

// Test hooks of the conversion-library stand-in. Product code never includes
// this header.
//
// The stand-in's convert() routes a frame to the converter registered for
// (frame format, output format). A frame whose format already is the output
// format (the blob frames of the stream client) is produced unchanged. What is
// produced goes to every registered sink in one of two ways:
// - Delivery::OnCallingThread (the default, the plainest library): on the
//   thread that called convert(), before it returns, holding the factory's
//   sinks mutex for the whole delivery to all sinks. One slow sink holds up
//   every other stream's convert().
// - Delivery::FromOwnThread: convert() copies the produced frame into one of
//   two output hardware buffers of the library's own (waiting while both are
//   in use) and returns; one delivery thread per factory hands it to the
//   sinks later, under the same mutex. The delivered frame's hardware buffer
//   is the library's and valid only during the sink call.
// Either way a frame's input buffer is read, never locked: its owner holds
// it locked for the whole convert() call.

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

enum class Delivery { OnCallingThread, FromOwnThread };
// For frames produced from now on, by every factory.
void setDelivery(Delivery mode);
Delivery delivery();
// Waits until every frame handed to a delivery thread has reached the sinks.
void waitForDeliveries();
// Hardware buffers the delivery threads hold (two at most per factory, kept
// for the factory's life).
size_t libraryBuffers();

// convert() calls since the last resetCounters(), and frames handed to sinks.
size_t convertCalls();
size_t deliveredFrames();
void resetCounters();
// The next n convert() calls fail (return -1) without reaching any sink.
void failConversions(int n);

}  // namespace convfact_standin
