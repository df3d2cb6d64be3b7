#pragma once
/// \file
/// Owners of what GLib and Aravis hand out.

#include <memory>

#include <arv.h>

namespace openpv {

struct object_unref {
    void operator()(void* object) const { g_object_unref(object); }
};

/// One reference to a GObject.
template <class object>
using object_handle = std::unique_ptr<object, object_unref>;

struct error_free {
    void operator()(GError* error) const { g_error_free(error); }
};
using error_handle = std::unique_ptr<GError, error_free>;

/// Receives a `GError` from a call, as in `f(..., error.out())`.
class error_slot {
public:
    error_slot() = default;
    error_slot(error_slot const&) = delete;
    error_slot& operator=(error_slot const&) = delete;
    ~error_slot() { g_clear_error(&error_); }

    GError** out() {
        g_clear_error(&error_);
        return &error_;
    }
    GError const* get() const { return error_; }

private:
    GError* error_ = nullptr;
};

}  // namespace openpv
