#pragma once

// Counters, injected faults and the plug-in list shared by the conversion
// stand-in's classes and its test hooks.

#include <map>
#include <string>

#include "conversion_testing.h"

namespace convfact_standin {

// Plug-ins added by tests, by name.
std::map<std::string, PluginMaker> pluginMakers();
void countConvert();
void countDelivery();
// Consumes one injected failure; true when this convert() is to fail.
bool takeConversionFailure();

}  // namespace convfact_standin
