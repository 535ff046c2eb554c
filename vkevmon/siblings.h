// The sibling libraries, which the module loads by name: the alert component and the list of products.
#ifndef VKEVMON_SIBLINGS_H
#define VKEVMON_SIBLINGS_H

#include "platform/siblings.h"
#include "platform/types.h"

// Module-wide state, written by the functions below on the monitor thread.
extern HMODULE hDll;                                       // the report library
extern HMODULE hvkirtuptDll;                               // the product-registry library
extern ReadProductsRegisteriedFn pReadProductsRegisteried; // null: no products to ask for
extern TARSKPPLX_PPInfoClearFn pTARSKPPLX_PPInfoClear;     // frees a product list

// Loads both libraries below the install root and looks their functions up; pVKMonitorCall (match/report.h) is
// one of them. Returns false after tracing why, under the name of StartThread. Both are unloaded then, but for
// a report library without VKMonitorCall, which stays loaded: that is intended, see entry.cc.
bool LoadSiblings();

// Unloads both. pVKMonitorCall stays set.
void UnloadSiblings();

#endif // VKEVMON_SIBLINGS_H
