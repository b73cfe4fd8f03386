/* Symbol visibility and C linkage for the lumivex C ABI. */
#ifndef LUMIVEX_EXPORT_H_
#define LUMIVEX_EXPORT_H_

#if defined(LUMIVEX_STATIC_DEFINE)
#define LUMIVEX_API
#elif defined(_WIN32)
#if defined(LUMIVEX_BUILDING)
#define LUMIVEX_API __declspec(dllexport)
#else
#define LUMIVEX_API __declspec(dllimport)
#endif
#else
#define LUMIVEX_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
#define LUMIVEX_EXTERN_C_BEGIN extern "C" {
#define LUMIVEX_EXTERN_C_END }
#else
#define LUMIVEX_EXTERN_C_BEGIN
#define LUMIVEX_EXTERN_C_END
#endif

#endif /* LUMIVEX_EXPORT_H_ */
