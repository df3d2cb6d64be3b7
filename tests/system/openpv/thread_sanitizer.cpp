/// \file
/// What the thread sanitizer is told, in programs that use Aravis.

#ifdef __SANITIZE_THREAD__
/// GLib and Aravis are not compiled for the thread sanitizer, so it sees none of their locks.
extern "C" __attribute__((visibility("default"))) char const* __tsan_default_suppressions() {
    return "called_from_lib:libglib-2.0.so\n"
           "called_from_lib:libgobject-2.0.so\n"
           "called_from_lib:libgio-2.0.so\n"
           "called_from_lib:libaravis-0.8.so\n";
}
#endif
