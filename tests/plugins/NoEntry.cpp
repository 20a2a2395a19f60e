// A shared library that is no component pack: it lacks the entry points.
extern "C" __attribute__((visibility("default"))) int noEntryAnswer() { return 42; }
