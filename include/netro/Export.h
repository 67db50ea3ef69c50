// Marks what a shared library shows to its users.
#pragma once

#if defined(_WIN32) && defined(NETRO_SHARED)
#ifdef NETRO_BUILDING
#define NETRO_EXPORT __declspec(dllexport)
#else
#define NETRO_EXPORT __declspec(dllimport)
#endif
#elif defined(__GNUC__)
#define NETRO_EXPORT __attribute__((visibility("default")))
#else
#define NETRO_EXPORT
#endif
