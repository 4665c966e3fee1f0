// Symbol visibility for the aostore library.
#ifndef AOSTORE_EXPORT_H
#define AOSTORE_EXPORT_H

#if defined(AOSTORE_STATIC)
#define AOSTORE_API
#elif defined(_WIN32)
#if defined(AOSTORE_BUILDING)
#define AOSTORE_API __declspec(dllexport)
#else
#define AOSTORE_API __declspec(dllimport)
#endif
#else
#define AOSTORE_API __attribute__((visibility("default")))
#endif

#endif  // AOSTORE_EXPORT_H
