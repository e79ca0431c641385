// Libraries that are looked for while the program runs.
#pragma once

namespace qx {

class OsModule;

class ModuleService {
  public:
    virtual ~ModuleService() = default;

    // The library of that file name, by the loader's ordinary search; null when there is none that can be loaded.
    virtual OsModule* Load(const char* name) = 0;

    // A function of it; null when it has none of that name.
    virtual void* FunctionOf(OsModule* module, const char* name) = 0;

    // Gives back what Load returned.
    virtual void Unload(OsModule* module) = 0;
};

}  // namespace qx
