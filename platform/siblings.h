// The functions that are loaded by name from the sibling libraries, and their records.
#ifndef PLATFORM_SIBLINGS_H
#define PLATFORM_SIBLINGS_H

#include <cstddef>
#include <cstdint>

// What VKMonitorCall is given. The record and everything it points at die when the call returns.
// The alert component was built apart from the module, so every offset is fixed. The fields without
// a meaning here are 0.
struct ReportRequest {
    uint32_t reserved0;
    const char *logName; // "Application"
    const char *source;  // the monitoring entry's source name
    uint32_t eventId;    // the monitoring entry's event ID
    uint16_t reserved28;
    uint16_t reserved30;
    uint64_t reserved32;
    uint16_t stringCount; // 0 although one string is passed; the alert component expects it so
    uint32_t reserved44;
    const char **strings; // one element: the log line in the registry's character set
    uint64_t reserved56;
    uint32_t reserved64;
    uint64_t reserved72;
};
static_assert(offsetof(ReportRequest, logName) == 8);
static_assert(offsetof(ReportRequest, source) == 16);
static_assert(offsetof(ReportRequest, eventId) == 24);
static_assert(offsetof(ReportRequest, reserved28) == 28);
static_assert(offsetof(ReportRequest, reserved30) == 30);
static_assert(offsetof(ReportRequest, reserved32) == 32);
static_assert(offsetof(ReportRequest, stringCount) == 40);
static_assert(offsetof(ReportRequest, reserved44) == 44);
static_assert(offsetof(ReportRequest, strings) == 48);
static_assert(offsetof(ReportRequest, reserved56) == 56);
static_assert(offsetof(ReportRequest, reserved64) == 64);
static_assert(offsetof(ReportRequest, reserved72) == 72);
static_assert(sizeof(ReportRequest) == 80);

// A product record of ReadProductsRegisteried: opaque, but for these fields at fixed byte offsets.
constexpr size_t kProductNextOffset = 0;     // pointer to the next record, null at the end
constexpr size_t kProductNameOffset = 72;    // zero-terminated name
constexpr size_t kProductStateOffset = 2264; // 32-bit integer, a kProductState value
constexpr int32_t kProductStateUnopened = 0; // registered, not set up yet
constexpr int32_t kProductStateOpened = 1;   // set up

// The one request code in use: list the registered products.
constexpr int kReadProductsList = 2;

extern "C" {

// lib/vkmncall.dll: takes a report. Copies what it keeps and returns at once.
using VKMonitorCallFn = int (*)(ReportRequest *request);

// lib/vkirtupt.dll: 1 when `list` was filled with product records (null: there are none).
using ReadProductsRegisteriedFn = int (*)(int requestCode, void **list);

// lib/vkirtupt.dll: frees such a list.
using TARSKPPLX_PPInfoClearFn = int (*)(void *list);

} // extern "C"

#endif // PLATFORM_SIBLINGS_H
