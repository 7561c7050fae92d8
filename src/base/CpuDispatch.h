#pragma once

// Functions marked SONVALE_CPU_CLONES are compiled twice, for the baseline x86-64 and for
// processors with AVX2 and fused multiply-add (SONVALE_AVX2_CLONES: AVX2 alone, so that no
// multiply-add is fused and sums round as in the baseline); the loader picks one through an
// ifunc resolver. Helpers they call should be always_inline so that they are built for both.
//
// A sanitizer instruments that resolver, which then runs before the sanitizer is set up and
// crashes the program at start-up, so sanitized builds get the one portable version.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define SONVALE_CPU_CLONES __attribute__((target_clones("arch=haswell", "default")))
#define SONVALE_AVX2_CLONES __attribute__((target_clones("avx2", "default")))
#else
#define SONVALE_CPU_CLONES
#define SONVALE_AVX2_CLONES
#endif

#define SONVALE_ALWAYS_INLINE __attribute__((always_inline)) inline
