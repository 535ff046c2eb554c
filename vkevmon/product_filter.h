// The sources that are not to be watched: those of products that are registered with the alert
// component but not set up yet.
#ifndef VKEVMON_PRODUCT_FILTER_H
#define VKEVMON_PRODUCT_FILTER_H

#include <cstdint>

// The "Source" value of one product that is not set up. The value is a sequence of records without
// padding: a 4-byte field, a zero-terminated text that is skipped, and a zero-terminated source
// name.
struct SrcNode {
    SrcNode *next;       // null at the end; the order of the product list
    uint32_t dataLength; // bytes of data
    char *data;          // dataLength + 1 bytes, the last one zero; from calloc
    uint32_t nameLength; // bytes of name, without its zero byte
    char *name;          // the product's name; from calloc
};

#pragma GCC visibility push(default)
extern "C" {

// Collects the source data of every product of the list that is not set up.
//   phead                     the product list, or null
//   ppSyslogInnerProductSrc   in: address of a null pointer; out: the list, freed by the caller with
//                             FreeSourceFilter
// A product without a readable "Source" value is passed over.
// Returns 0, also for an empty list, or -1: null address, or out of memory (the list is then null).
int GetSrcOfUnOpenProduct(void *phead, struct SrcNode **ppSyslogInnerProductSrc);

} // extern "C"
#pragma GCC visibility pop

// Does the filter hold the monitoring source of that name? The names in the filter are turned into
// upper case, in place, and compared with the source exactly as the registry lists it. So only a
// source whose key is named in upper case can ever be filtered: the interface fixes that.
bool SourceIsFiltered(SrcNode *filter, const char *source);

void FreeSourceFilter(SrcNode *filter);

#endif // VKEVMON_PRODUCT_FILTER_H
