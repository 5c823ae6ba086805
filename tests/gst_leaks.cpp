// SPDX-License-Identifier: BSD-2-Clause
// Copyright (c) 2026, the mp4vdec authors

// Leaks that are not ours can be told by their callers only, and those by slow unwinding: GLib has no frame pointers.
extern "C" const char* __asan_default_options();
extern "C" const char* __lsan_default_suppressions();

const char* __asan_default_options() {
    return "fast_unwind_on_malloc=0";
}

// The MP4 muxer forgets some of its atoms. GLib outgrows the table of names that it makes when it is loaded, and leaves
// it behind; the loader is known by its function where its symbols are installed, else by its name.
const char* __lsan_default_suppressions() {
    return "leak:libgstisomp4\n"
           "leak:call_init\n"
           "leak:ld-linux\n";
}
