// host_export.h - export and calling-convention macros of the host
// libraries libutils, libcontainer and libmaths.
//
// On 32-bit Windows each library exports its symbols while it is built and
// imports them otherwise; elsewhere the symbols are simply visible.
#ifndef HOST_EXPORT_H
#define HOST_EXPORT_H

#if defined(_WIN32)
#  define HOST_DLL_EXPORT __declspec(dllexport)
#  define HOST_DLL_IMPORT __declspec(dllimport)
#  define HOST_CDECL __cdecl
#else
#  define HOST_DLL_EXPORT __attribute__((visibility("default")))
#  define HOST_DLL_IMPORT __attribute__((visibility("default")))
#  define HOST_CDECL
#endif

#if defined(HOST_BUILDING_UTILS)
#  define UT_API HOST_DLL_EXPORT
#else
#  define UT_API HOST_DLL_IMPORT
#endif

#if defined(HOST_BUILDING_CONTAINER)
#  define CO_API HOST_DLL_EXPORT
#else
#  define CO_API HOST_DLL_IMPORT
#endif

#if defined(HOST_BUILDING_MATHS)
#  define ML_API HOST_DLL_EXPORT
#else
#  define ML_API HOST_DLL_IMPORT
#endif

#endif
