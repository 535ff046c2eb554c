// lib/vkirtupt.dll: the products that are registered with the alert component.
//
// They are the keys below SOFTWARE\KORBIN\TARSKVOSKAR\AlertReport, in the order of their creation.
// A value "Setup" of 0 says that a product is registered but not set up yet; without it, it is set
// up.
//
// The list is the caller's until it gives it back with TARSKPPLX_PPInfoClear: the memory was taken
// here, so it is freed here. The functions are the monitor thread's.
#include <cstring>
#include <memory>
#include <utility>

#include "agent/host/c_boundary.h"
#include "agent/host/host.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/siblings.h"

namespace {

// Results of ReadProductsRegisteried. Without products the list is filled, too: it is empty.
constexpr int kListFilled = 1;
constexpr int kListNotFilled = 0;

// A product record, as far as its layout is fixed. The caller reads it at fixed offsets, across a C
// interface; the assertions below hold the compiler to them. What is between the fields is zero.
struct Product {
    Product *next;
    char unused[kProductNameOffset - sizeof(void *)];
    char name[kProductStateOffset - kProductNameOffset];
    int32_t state;
};
static_assert(offsetof(Product, next) == kProductNextOffset);
static_assert(offsetof(Product, name) == kProductNameOffset);
static_assert(offsetof(Product, state) == kProductStateOffset);
// So no name of a registry key is ever cut, and its copy below needs no bound.
static_assert(sizeof Product::name > host::kMaxKeyName);

void FreeList(Product *list)
{
    while (list != nullptr) {
        const std::unique_ptr<Product> product(list);
        list = product->next;
    }
}

// A list that is being made, and is freed when that fails.
struct ProductList {
    Product *first = nullptr;
    ProductList() = default;
    ~ProductList() { FreeList(first); }
    ProductList(const ProductList &) = delete;
    ProductList &operator=(const ProductList &) = delete;
};

// What cannot be read counts as set up: a product that says nothing about it must not keep its
// sources from being watched. So does a value of more than four bytes, which the call refuses.
int32_t StateOf(const std::string &name)
{
    uint32_t state = kProductStateOpened;
    DWORD size = sizeof state;
    VKACREGetSubkeyValue(HKEY_LOCAL_MACHINE, kAlertReportKey, name.c_str(), kProductSetupValue,
                         &state, &size);
    return state == 0 ? kProductStateUnopened : kProductStateOpened;
}

// A product that vanishes between the list of names and a look at its value is in the list as one
// that is set up.
Product *ReadList()
{
    host::RegistryTree &registry = host::Current().registry();
    const auto key = registry.Find(host::kRootKey, kAlertReportKey);
    if (!key)
        return nullptr;
    ProductList list;
    Product **end = &list.first;
    for (const std::string &name : registry.SubKeys(*key)) {
        auto product = std::make_unique<Product>();
        memcpy(product->name, name.c_str(), name.size() + 1);
        product->state = StateOf(name);
        *end = product.release();
        end = &(*end)->next;
    }
    return std::exchange(list.first, nullptr);
}

} // namespace

#pragma GCC visibility push(default)
extern "C" {

// On failure `list` is left alone, so a caller that set it to null before has nothing to free.
int ReadProductsRegisteried(int requestCode, void **list)
{
    return host::AtBoundary<int>(__func__, kListNotFilled, [&] {
        if (requestCode != kReadProductsList || list == nullptr)
            return kListNotFilled;
        *list = ReadList();
        return kListFilled;
    });
}

// Takes the empty list, too.
int TARSKPPLX_PPInfoClear(void *list)
{
    FreeList(static_cast<Product *>(list));
    return 1;
}

} // extern "C"
#pragma GCC visibility pop
