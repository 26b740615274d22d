#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <string>

#include "trevo/ConverterCbInterface.h"
#include "trevo/ConverterInterface.h"
#include "trevo/TrevoExport.h"

namespace trevo {

// Loads converter plug-ins and keeps them for the life of the factory.
class TREVO_EXPORT PluginManager {
public:
    struct PluginState {
        ConverterInterface* converter = nullptr;  // owned by `owner`
        std::shared_ptr<ConverterInterface> owner;
        std::string name;
    };
    using PluginMap = std::map<std::string, std::shared_ptr<PluginState>>;

    PluginManager();
    ~PluginManager();
    PluginManager(const PluginManager&) = delete;
    PluginManager& operator=(const PluginManager&) = delete;

    // Loads every available plug-in, giving each `callback`. Returns the
    // number loaded.
    int loadPlugins(ConverterCbInterface* callback);
    // The loaded plug-ins by name.
    PluginMap plugins() const;

private:
    PluginMap plugins_;
    mutable std::mutex mutex_;
};

}  // namespace trevo
