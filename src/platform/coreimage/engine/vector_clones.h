#pragma once

// Span loops marked with this are compiled for AVX-512, AVX2 and the baseline, and the loader picks
// the best the processor has. Use it on free functions that hold a kernel's hot loop (virtual
// functions cannot be cloned). Loops that need more than the compiler finds by itself are written
// with Highway instead. The thread sanitizer cannot start a program whose clones are resolved at
// load time, so its builds use the baseline only.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define BV_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#define BV_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define BV_VECTOR_CLONES
#define BV_AVX2_CLONES
#endif
