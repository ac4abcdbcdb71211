// The part of os/log.h that kioskd uses.
// Source: os_log(3); libkern/os/log.h of the open-source XNU for the levels; clang's documentation
// of
// __builtin_os_log_format. What the macro below expands to is the macro of the system's own header,
// as public code shows it; no Mac has confirmed it.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct os_log_s* os_log_t;
typedef uint8_t os_log_type_t;
extern struct mach_header __dso_handle;
os_log_t os_log_create(const char* subsystem, const char* category);
bool os_log_type_enabled(os_log_t log, os_log_type_t type);
void _os_log_impl(void* image, os_log_t log, os_log_type_t type, const char* format,
                  uint8_t* buffer, uint32_t size);

#ifdef __cplusplus
}
#endif

// The format has a section of its own, in which the log's readers are said to look for it. Without
// the section's usual type, for which linkers merge it into the other strings; that a Mac's log
// takes a format from a section without it is not confirmed.
#define os_log_with_type(log, type, format, ...)                                             \
  do {                                                                                       \
    const os_log_t log_ = (log);                                                             \
    const os_log_type_t type_ = (type);                                                      \
    if (os_log_type_enabled(log_, type_)) {                                                  \
      static const char format_[] __attribute__((section("__TEXT,__oslogstring"))) = format; \
      __attribute__((aligned(16)))                                                           \
      uint8_t buffer_[__builtin_os_log_format_buffer_size(format, ##__VA_ARGS__)];           \
      _os_log_impl(&__dso_handle, log_, type_, format_,                                      \
                   (uint8_t*)__builtin_os_log_format(buffer_, format, ##__VA_ARGS__),        \
                   sizeof buffer_);                                                          \
    }                                                                                        \
  } while (0)
