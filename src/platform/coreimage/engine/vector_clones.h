#pragma once

// Span loops marked with this are compiled for AVX-512, AVX2 and the baseline, and the loader picks
// the best the processor has. Use it on free functions that hold a kernel's hot loop (virtual
// functions cannot be cloned): a kernel's apply passes its span and settings to one. The wider
// clones never fuse a multiply and an add, so every clone gives the baseline's results bit for bit.
// Loops that need more than the compiler finds by itself are written with Highway instead. The
// thread sanitizer cannot start a program whose clones are resolved at load time, so its builds use
// the baseline only.
//
// BV_FUSED_VECTOR_CLONES lets the wider clones fuse multiply-adds, so their results may differ from
// the baseline's in the last bit; only the colour-matrix, gamma and vibrance loops use it, and their
// output on such processors is what stored renders hold.
#if defined(__x86_64__) && !defined(__clang__) && !defined(__SANITIZE_THREAD__)
#define BV_VECTOR_CLONES \
  __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default"), optimize("fp-contract=off")))
#define BV_FUSED_VECTOR_CLONES __attribute__((target_clones("arch=x86-64-v4", "arch=x86-64-v3", "default")))
#define BV_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define BV_VECTOR_CLONES
#define BV_FUSED_VECTOR_CLONES
#define BV_AVX2_CLONES
#endif
