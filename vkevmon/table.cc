#include "vkevmon/table.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "match/table_data.h"
#include "platform/agent.h"
#include "platform/contract.h"
#include "platform/registry.h"
#include "platform/trace.h"
#include "vkevmon/product_filter.h"
#include "vkevmon/siblings.h"
#include "vkevmon/subkeys.h"

namespace {

constexpr char kUnit[] = "vkevmon";
constexpr const char *kInterface = "VKVMonQueGet";

// Room for the longest path: the APPLICATION key, a source, an ID, "WATCHSETTING" and backslashes.
constexpr size_t kPathSize = sizeof kApplicationKey + kSourceNameSize + kIdNameSize + 32;

// ---- one event ----

// What reading the settings of one event came to.
enum class Event { kEntry, kSkipped, kFailed };

// A keyword in the character set of the log, cut to its first 256 bytes, between two characters.
void TakeKeyword(const char *stored, char *keyword)
{
    memset(keyword, 0, kKeywordSize);
    TarskCodeConvert(stored, -1, keyword, kKeywordSize, CODE_REGISTRY, CODE_LOG);
    keyword[kKeywordSize - 1] = '\0';
}

// The registry gives a value that is longer than a keyword only as a whole.
bool ReadLongKeyword(HKEY settings, const char *name, DWORD size, char *keyword)
{
    auto *stored = static_cast<char *>(calloc(1, size_t{size} + 1));
    if (stored == nullptr)
        return false;
    DWORD type = 0;
    const bool done =
        RegQueryValueEx(settings, name, nullptr, &type, stored, &size) == ERROR_SUCCESS;
    if (done)
        TakeKeyword(stored, keyword);
    free(stored);
    return done;
}

// One keyword of the settings key. False when it cannot be read.
bool ReadKeyword(HKEY settings, const char *name, char *keyword)
{
    // One byte more than is read, so that a value stored without its zero byte ends all the same.
    char stored[kKeywordSize + 1] = {};
    DWORD type = 0;
    DWORD size = kKeywordSize;
    const LONG result = RegQueryValueEx(settings, name, nullptr, &type, stored, &size);
    if (result == ERROR_MORE_DATA)
        return ReadLongKeyword(settings, name, size, keyword);
    if (result == ERROR_SUCCESS)
        TakeKeyword(stored, keyword);
    return result == ERROR_SUCCESS;
}

// Reads the three keywords of an event into the entry.
Event ReadKeywords(HKEY settings, const char *path, VKVMon *entry)
{
    char *const keywords[kKeywordsOfEntry] = {entry->Keyword1, entry->Keyword2, entry->Keyword3};
    int empty = 0;
    for (int k = 0; k < kKeywordsOfEntry; ++k) {
        if (ReadKeyword(settings, kKeywordValues[k], keywords[k])) {
            if (keywords[k][0] == '\0')
                ++empty;
            continue;
        }
        TRACE_HELPER(TRACE_ERROR, "keyword%d RegQueryValueEx %s failed.\n", k + 1, path);
        RegCloseKey(settings);
        if (k == 0)
            return Event::kFailed;
        // The reads that follow go to the closed handle, on purpose: an event whose settings are
        // not complete then fails the load at its report count, instead of being watched by half.
        keywords[k][0] = '\0';
        TRACE_HELPER(TRACE_NOTABLE, "pass keyword%d", k + 1);
    }
    if (empty < kKeywordsOfEntry)
        return Event::kEntry;
    TRACE_HELPER(TRACE_ERROR, "Three keywords are all empty .");
    return Event::kSkipped; // the settings key stays open here: that is how the interface has it
}

bool ReadNumber(HKEY settings, const char *name, void *number)
{
    DWORD type = 0;
    DWORD size = sizeof(uint32_t);
    return RegQueryValueEx(settings, name, nullptr, &type, number, &size) == ERROR_SUCCESS;
}

// Reads what follows the keywords, and closes the settings key.
bool ReadCountAndHours(HKEY settings, const char *path, VKVMon *entry)
{
    bool done = true;
    if (!ReadNumber(settings, kReportCountValue, &entry->ReportCount)) {
        TRACE_HELPER(TRACE_ERROR, "reg ReportCount of key %s not found.", path);
        done = false;
    } else if (!ReadNumber(settings, kWatchTimeValue, &entry->WatchTime)) {
        TRACE_HELPER(TRACE_ERROR, "reg WatchTime of key %s not found.", path);
        done = false;
    }
    RegCloseKey(settings);
    return done;
}

// Takes a complete entry into the table. Beyond the table's end the walk goes on as ever, but the
// entry is not kept.
void StoreEntry(VKVMon *entry)
{
    if (!AddTableEntry(entry))
        free(entry);
}

// Loads one event. `path` is its settings key.
Event LoadEvent(const char *source, const char *id, const char *path)
{
    HKEY settings = nullptr;
    if (RegOpenKeyEx(HKEY_LOCAL_MACHINE, path, 0, KEY_READ, &settings) != ERROR_SUCCESS) {
        TRACE_HELPER(TRACE_ERROR, "RegOpenKeyEx %s failed.", path);
        return Event::kFailed;
    }
    VKVMon read{};
    const Event keywords = ReadKeywords(settings, path, &read);
    if (keywords != Event::kEntry)
        return keywords;

    TRACE_HELPER(TRACE_DETAIL, "loading source: %s, event: %s", source, id);
    auto *entry = static_cast<VKVMon *>(calloc(1, sizeof(VKVMon)));
    if (entry == nullptr) {
        TRACE_HELPER(TRACE_SYSTEM, "lpVKVMon[] memory alloc failed.");
        RegCloseKey(settings);
        return Event::kFailed;
    }
    *entry = read;
    strncpy(entry->Source, source, kSourceNameSize - 1);
    if (sscanf(id, "%x", &entry->EventID) != 1)
        entry->EventID = 0; // a name that is not hexadecimal
    if (!ReadCountAndHours(settings, path, entry)) {
        free(entry);
        return Event::kFailed;
    }
    StoreEntry(entry);
    return Event::kEntry;
}

// ---- the walk ----

// The working arrays of a load.
struct Names {
    char *sources[kMaxEntries];
    char *ids[kMaxEntries];
};

bool AllocateNames(Names *names)
{
    for (int i = 0; i < kMaxEntries; ++i) {
        names->sources[i] = static_cast<char *>(calloc(1, kSourceNameSize));
        if (names->sources[i] == nullptr) {
            TRACE_HELPER(TRACE_SYSTEM, "malloc lpszSN[%d] fail", i);
            return false;
        }
        names->ids[i] = static_cast<char *>(calloc(1, kIdNameSize));
        if (names->ids[i] == nullptr) {
            TRACE_HELPER(TRACE_SYSTEM, "malloc lpszID[%d] fail", i);
            return false;
        }
    }
    return true;
}

void FreeNames(Names *names)
{
    for (int i = 0; i < kMaxEntries; ++i) {
        free(names->sources[i]);
        free(names->ids[i]);
    }
}

bool LoadSource(const char *source, Names *names)
{
    TRACE_HELPER(TRACE_DETAIL, "loading monitoring target: %s...", source);
    char source_key[kPathSize];
    snprintf(source_key, sizeof source_key, "%s\\%s", kApplicationKey, source);
    int ids = 0;
    if (SearchSubKey(source_key, names->ids, &ids) != 0) {
        TRACE_HELPER(TRACE_ERROR, "SearchSubKey(%s) ERROR", source_key);
        return false;
    }
    for (int i = 0; i < ids; ++i) {
        char settings_key[kPathSize + kIdNameSize + 16];
        snprintf(settings_key, sizeof settings_key, "%s\\%s\\%s", source_key, names->ids[i],
                 kWatchSettingKey);
        const Event event = LoadEvent(source, names->ids[i], settings_key);
        if (event == Event::kFailed)
            return false;
        if (event == Event::kEntry && nCnt >= kMaxEntries) {
            TRACE_HELPER(TRACE_NOTABLE,
                         "The number of EventID is up to 2048, initial process break");
            break;
        }
    }
    return true;
}

bool LoadSources(SrcNode *filter, Names *names)
{
    int sources = 0;
    if (SearchSubKey(kApplicationKey, names->sources, &sources) != 0) {
        TRACE_HELPER(TRACE_ERROR, "SearchSubKey(%s) ERROR", kApplicationKey);
        return false;
    }
    for (int i = 0; i < sources; ++i) {
        if (SourceIsFiltered(filter, names->sources[i])) {
            TRACE_HELPER(TRACE_DETAIL, "source: %s unopened", names->sources[i]);
            continue;
        }
        if (!LoadSource(names->sources[i], names))
            return false;
    }
    return true;
}

// The sources to leave out; null when nothing is to be filtered or the products cannot be had.
SrcNode *ReadFilter(void **products)
{
    if (pReadProductsRegisteried == nullptr ||
        pReadProductsRegisteried(kReadProductsList, products) != 1)
        return nullptr;
    SrcNode *filter = nullptr;
    return GetSrcOfUnOpenProduct(*products, &filter) != -1 ? filter : nullptr;
}

bool LoadTable(SrcNode **filter, void **products, Names *names)
{
    if (!AllocateNames(names))
        return false;
    *filter = ReadFilter(products);
    return LoadSources(*filter, names);
}

} // namespace

int VKVMonQueGet(void)
{
    TRACE(TRACE_DETAIL, ">");
    EmptyTable();
    Names names{};
    SrcNode *filter = nullptr;
    void *products = nullptr;
    const bool loaded = LoadTable(&filter, &products, &names);
    FreeNames(&names);
    if (!loaded)
        EmptyTable();
    FreeSourceFilter(filter);
    if (pTARSKPPLX_PPInfoClear != nullptr)
        pTARSKPPLX_PPInfoClear(products);
    const int result = loaded ? 0 : -1;
    TRACE(TRACE_DETAIL, "<return %d", result);
    return result;
}
