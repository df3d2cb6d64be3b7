#pragma once
#include <cstdint>
#include <memory>

#include <PvInterface.h>
#include <PvResult.h>

/// Discovery of GigE Vision devices.
class PvSystem {
public:
    PvSystem();
    PvSystem(PvSystem const&) = delete;
    PvSystem& operator=(PvSystem const&) = delete;
    ~PvSystem();

    PvResult Find();  ///< looks for devices; replaces what an earlier search found
    uint32_t GetInterfaceCount() const;
    PvInterface const* GetInterface(uint32_t index) const;  ///< null beyond the last

private:
    struct impl;
    std::unique_ptr<impl> impl_;
};
