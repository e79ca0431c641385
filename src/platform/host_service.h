// The computer and the program that the library runs in.
#pragma once

#include <cstddef>
#include <cstdint>

namespace qx {

class OsModule;

class HostService {
  public:
    virtual ~HostService() = default;

    // Whether the system is one that the library runs on.
    virtual bool IsSupported() = 0;

    // Writes the computer's name, upper-cased, up to its first dot and cut to 15 bytes, and returns its length; 0 when
    // it cannot be had.
    virtual uint32_t ComputerName(char (&name)[16]) = 0;

    // Keeps the library's own module loaded until it is released; null when that is not possible.
    virtual OsModule* PinModule() = 0;
    virtual void UnpinModule(OsModule* module) = 0;

    // In every process that is forked off from now on, closes the copies of open files and then calls `inNewProcess`,
    // which may not allocate. To be called once; false when the system refuses.
    virtual bool OnFork(void (*inNewProcess)()) = 0;
};

}  // namespace qx
