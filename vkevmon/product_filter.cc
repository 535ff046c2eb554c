#include "vkevmon/product_filter.h"

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <cstring>

#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/siblings.h"
#include "platform/trace.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "GetSrcOfUnOpenProduct";

// Bytes that are read of a "Source" value, and the buffer for them with a zero byte behind.
constexpr DWORD kSourceReadSize = 507;
constexpr size_t kSourceBufferSize = 508;
static_assert(kSourceReadSize < kSourceBufferSize, "the data must stay terminated");

constexpr uint32_t kRecordFieldSize = 4; // the field before each skipped text

const char *NextProduct(const char *product)
{
    const char *next = nullptr;
    memcpy(&next, product + kProductNextOffset, sizeof next);
    return next;
}

int32_t ProductState(const char *product)
{
    int32_t state = 0;
    memcpy(&state, product + kProductStateOffset, sizeof state);
    return state;
}

void FreeNode(SrcNode *node)
{
    free(node->data);
    free(node->name);
    free(node);
}

void *AllocateZeroed(size_t size)
{
    void *memory = calloc(1, size);
    if (memory == nullptr)
        TRACE_HELPER(TRACE_SYSTEM, "malloc error size: %d", static_cast<int>(size));
    return memory;
}

// A node with copies of the data and the name, or null.
SrcNode *MakeNode(const char *data, uint32_t size, const char *name)
{
    auto *node = static_cast<SrcNode *>(AllocateZeroed(sizeof(SrcNode)));
    if (node == nullptr)
        return nullptr;
    const size_t name_length = strlen(name);
    node->dataLength = size;
    node->nameLength = static_cast<uint32_t>(name_length);
    node->data = static_cast<char *>(AllocateZeroed(size_t{size} + 1));
    if (node->data != nullptr)
        node->name = static_cast<char *>(AllocateZeroed(name_length + 1));
    if (node->name == nullptr) {
        FreeNode(node);
        return nullptr;
    }
    memcpy(node->data, data, size);
    memcpy(node->name, name, name_length);
    return node;
}

// Reads the source data of a product. False when it has none.
bool ReadSourceData(const char *name, char *data, DWORD *size)
{
    *size = kSourceReadSize;
    if (VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, kAlertReportKey, name, kProductSourceValue, data,
                             size) == 1) {
        *size = std::min(*size, kSourceReadSize);
        return true;
    }
    TRACE_HELPER(TRACE_ERROR, "Product no SOURCE : %s", name);
    return false;
}

void ToUpper(char *text)
{
    for (; *text != '\0'; ++text)
        *text = static_cast<char>(toupper(static_cast<unsigned char>(*text)));
}

bool NodeHolds(SrcNode *node, const char *source)
{
    // Records are walked inside the data and its closing zero byte, whatever a product has stored.
    for (uint32_t pos = 0; pos < node->dataLength;) {
        pos += kRecordFieldSize;
        if (pos > node->dataLength)
            return false;
        pos += static_cast<uint32_t>(strlen(node->data + pos)) + 1;
        if (pos > node->dataLength)
            return false;
        char *name = node->data + pos;
        TRACE_FOR("VKVMonQueGet", TRACE_DETAIL, "lpstr: %s -> lpszSN:%s", name, source);
        ToUpper(name);
        if (strcmp(name, source) == 0)
            return true;
        pos += static_cast<uint32_t>(strlen(name)) + 1;
    }
    return false;
}

} // namespace

int GetSrcOfUnOpenProduct(void *phead, struct SrcNode **ppSyslogInnerProductSrc)
{
    TRACE(TRACE_DETAIL, ">phead=%p,ppSyslogInnerProductSrc=%p", phead,
          static_cast<void *>(ppSyslogInnerProductSrc));
    if (ppSyslogInnerProductSrc == nullptr) {
        TRACE(TRACE_ERROR, "param ppSyslogInnerProductSrc is NULL\n");
        return -1;
    }
    SrcNode **end = ppSyslogInnerProductSrc;
    for (const char *product = static_cast<const char *>(phead); product != nullptr;
         product = NextProduct(product)) {
        const char *name = product + kProductNameOffset;
        TRACE(TRACE_DETAIL, " %s setup:%d;0:unopened 1:opened", name, ProductState(product));
        if (ProductState(product) != kProductStateUnopened)
            continue;
        char data[kSourceBufferSize] = {};
        DWORD size = 0;
        if (!ReadSourceData(name, data, &size))
            continue;
        *end = MakeNode(data, size, name);
        if (*end == nullptr) {
            FreeSourceFilter(*ppSyslogInnerProductSrc);
            *ppSyslogInnerProductSrc = nullptr;
            return -1;
        }
        end = &(*end)->next;
    }
    TRACE(TRACE_DETAIL, "<return 0.");
    return 0;
}

bool SourceIsFiltered(SrcNode *filter, const char *source)
{
    for (SrcNode *node = filter; node != nullptr; node = node->next) {
        if (NodeHolds(node, source))
            return true;
    }
    return false;
}

void FreeSourceFilter(SrcNode *filter)
{
    while (filter != nullptr) {
        SrcNode *next = filter->next;
        FreeNode(filter);
        filter = next;
    }
}
