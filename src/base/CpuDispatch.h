#pragma once

// Functions marked SONVALE_CPU_CLONES are compiled twice, for the baseline x86-64 and for
// processors with AVX2 and fused multiply-add; the loader picks one through an ifunc
// resolver. Helpers they call should be always_inline so that they are built for both.
//
// A sanitizer instruments that resolver, which then runs before the sanitizer is set up and
// crashes the program at start-up, so sanitized builds get the one portable version.
#if defined(__x86_64__) && !defined(__SANITIZE_THREAD__) && !defined(__SANITIZE_ADDRESS__)
#define SONVALE_CPU_CLONES __attribute__((target_clones("arch=haswell", "default")))
#else
#define SONVALE_CPU_CLONES
#endif

#define SONVALE_ALWAYS_INLINE __attribute__((always_inline)) inline
