// Small compiler helpers shared by every folder.
#pragma once

// Lets the compiler check printf-style format strings against their arguments.
#if defined(__GNUC__)
#define ARD_PRINTF_LIKE(fmt, args) __attribute__((format(printf, fmt, args)))
#else
#define ARD_PRINTF_LIKE(fmt, args)
#endif
