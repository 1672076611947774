#pragma once

// Marks what a client of the shared library links against. Everything else stays hidden.
#if defined(__GNUC__)
#define QCF_API __attribute__((visibility("default")))
#else
#define QCF_API
#endif
