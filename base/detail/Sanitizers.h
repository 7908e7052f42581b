// Tells which sanitizers this translation unit is compiled with: each macro is 1 or 0.
#pragma once

#if defined(__SANITIZE_THREAD__)
#define KV_THREAD_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(thread_sanitizer)
#define KV_THREAD_SANITIZER 1
#endif
#endif
#ifndef KV_THREAD_SANITIZER
#define KV_THREAD_SANITIZER 0
#endif

#if defined(__SANITIZE_ADDRESS__)
#define KV_ADDRESS_SANITIZER 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define KV_ADDRESS_SANITIZER 1
#endif
#endif
#ifndef KV_ADDRESS_SANITIZER
#define KV_ADDRESS_SANITIZER 0
#endif
