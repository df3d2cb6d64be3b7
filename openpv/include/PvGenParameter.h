#pragma once
#include <memory>

#include <PvResult.h>
#include <PvTypes.h>

/// A feature of a GenICam description, or of the connection. The base of the typed features.
class PvGenParameter {
public:
    struct impl;  ///< the layer's side of a feature
    explicit PvGenParameter(std::unique_ptr<impl> state);
    PvGenParameter(PvGenParameter const&) = delete;
    PvGenParameter& operator=(PvGenParameter const&) = delete;
    virtual ~PvGenParameter();

    PvResult GetType(PvGenType& type);

protected:
    std::unique_ptr<impl> impl_;
};
