// Reading of .reg files: one pass over the characters, line by line, without going back.
//
// A fault ends its line and nothing else, so a file is told of all its faults at once. Only a first
// line that is none of such a file ends the reading: what follows would be faults without end.
#include <algorithm>
#include <cstring>
#include <optional>

#include "agent/regfile/reg_path.h"
#include "agent/regfile/reg_text.h"
#include "agent/text/utf8.h"
#include "platform/registry.h"

namespace regfile {

namespace {

// Of the two versions of the form. Both are read alike, in whatever encoding the file is.
constexpr std::string_view kHeaders[] = {"Windows Registry Editor Version 5.00", "REGEDIT4"};

// What messages give as the next step.
constexpr char kKeyForm[] = "write it as [HKEY_LOCAL_MACHINE\\NAME\\NAME]";
constexpr char kDataForms[] = "use \"text\", dword:0000002a, hex:01,ff, hex(7):61,00, or - to "
                              "delete the value";
constexpr char kEscapes[] = "write \\\\ for a backslash, \\\" for a quote, \\x0A for a byte";

bool IsBlank(char c)
{
    return c == ' ' || c == '\t';
}

// The value of a hexadecimal digit; -1: it is none.
int DigitOf(char c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

// One pass over the text. Each Read function leaves the position behind what it has read; the ones
// that return false or nothing have noted an issue, and the rest of the line is then skipped.
// Issues stand at an offset in bytes, which their list turns into line and column.
class RegReader {
  public:
    RegReader(std::string_view text, text::IssueList *issues, std::vector<RegStep> *steps)
        : text_(text), issues_(issues), steps_(steps)
    {
    }

    void ReadFile();

  private:
    // Behind the end of the text stands a line end: the last line may lack its own, and no loop has
    // to look for both.
    [[nodiscard]] char Peek(size_t ahead = 0) const
    {
        return pos_ + ahead < text_.size() ? text_[pos_ + ahead] : '\n';
    }
    [[nodiscard]] bool AtLineEnd() const
    {
        return Peek() == '\n' || (Peek() == '\r' && Peek(1) == '\n');
    }
    [[nodiscard]] bool AtEnd() const { return pos_ >= text_.size(); }
    void SkipBlanks()
    {
        while (IsBlank(Peek()))
            ++pos_;
    }
    // Steps over a word, in any case; false: it does not stand here.
    bool Skip(std::string_view word)
    {
        if (!EqualsWithoutCase(text_.substr(pos_, word.size()), word))
            return false;
        pos_ += word.size();
        return true;
    }
    // The rest of the line, without its end.
    [[nodiscard]] std::string_view RestOfLine() const;
    void SkipLine();
    void SkipFaultyLine();

    // Notes an issue. Returns false, so that it can be the value of what fails.
    bool Refuse(size_t offset, const std::string &thing, const std::string &cause,
                const std::string &next_step)
    {
        issues_->Add(offset, thing, cause, next_step);
        return false;
    }

    // ---- lines ----
    bool ReadHeader();
    // One line, or several that continue each other; false: it was faulty.
    bool ReadLine();
    bool ReadKey();
    bool ReadQuotedPath(std::string *path);
    bool ReadBarePath(std::string *path);
    // Are all names of the path such as the registry takes? `offset` is where an issue stands.
    bool CheckPath(size_t offset, const std::string &path);
    bool ReadValue();
    bool ReadName(std::string *name);
    // Type and bytes of a value, or that it is to be deleted.
    bool ReadData(size_t name_offset, host::RegValue *value, bool *is_deleted);
    bool ReadText(std::string *data);
    bool ReadNumber(std::string *data);
    bool ReadType(uint32_t *type);
    bool ReadBytes(std::string *data);
    bool ReadContinuation();
    // Nothing but blanks and a comment may follow; `behind` is what they stand behind, for the
    // message.
    bool ReadLineEnd(const std::string &behind);

    // A text in quotes, without them; `what` is its name in messages.
    bool ReadQuoted(const std::string &what, std::string *text);
    bool ReadEscape(const std::string &what, std::string *text);
    // One to eight hexadecimal digits.
    std::optional<uint32_t> ReadHexNumber();

    // What the values that follow belong to.
    enum class Place { kNowhere, kKey, kDeletedKey, kFaultyKey };

    std::string_view text_;
    size_t pos_ = 0;
    Place place_ = Place::kNowhere;
    // Of the key that the values belong to; good while the place is kKey.
    std::string path_;
    // Not owned, as the steps.
    text::IssueList *issues_;
    std::vector<RegStep> *steps_;
};

std::string_view RegReader::RestOfLine() const
{
    std::string_view rest = text_.substr(pos_, text_.find('\n', pos_) - pos_);
    if (rest.ends_with('\r'))
        rest.remove_suffix(1);
    return rest;
}

void RegReader::SkipLine()
{
    pos_ = std::min(text_.find('\n', pos_), text_.size() - 1) + 1;
}

// With the lines that continue it: they would only be reported once more.
void RegReader::SkipFaultyLine()
{
    bool goes_on = false;
    do {
        const std::string_view rest = RestOfLine();
        const size_t last = rest.find_last_not_of(" \t");
        goes_on = last != std::string_view::npos && rest[last] == '\\';
        SkipLine();
    } while (goes_on && !AtEnd());
}

void RegReader::ReadFile()
{
    if (!ReadHeader())
        return;
    while (!AtEnd()) {
        if (ReadLine())
            SkipLine();
        else
            SkipFaultyLine();
    }
}

bool RegReader::ReadHeader()
{
    for (; !AtEnd(); SkipLine()) {
        SkipBlanks();
        // Empty lines and comments may stand before the header.
        if (AtLineEnd() || Peek() == ';')
            continue;
        // Blanks behind it do no harm. Its case counts.
        std::string_view line = RestOfLine();
        line = line.substr(0, line.find_last_not_of(" \t") + 1);
        if (std::find(std::begin(kHeaders), std::end(kHeaders), line) == std::end(kHeaders))
            break;
        SkipLine();
        return true;
    }
    return Refuse(pos_, "cannot read the file", "it does not begin as a registry file does",
                  std::string("write \"") + std::string(kHeaders[0]) + "\" or \"" +
                      std::string(kHeaders[1]) + "\" into the first line");
}

bool RegReader::ReadLine()
{
    SkipBlanks();
    if (AtLineEnd() || Peek() == ';')
        return true;
    if (Peek() == '[')
        return ReadKey();
    if (Peek() == '"' || Peek() == '@')
        return ReadValue();
    return Refuse(pos_, "cannot read the line", "it is neither a key nor a value nor a comment",
                  "begin a key with [, a value with \" or @, a comment with ;");
}

bool RegReader::ReadLineEnd(const std::string &behind)
{
    SkipBlanks();
    if (AtLineEnd() || Peek() == ';')
        return true;
    return Refuse(pos_, "cannot read the line", "there is something behind " + behind,
                  "end the line there; a comment begins with ;");
}

// ---- keys ----

bool RegReader::ReadKey()
{
    const size_t offset = pos_;
    // Until the key has turned out well: the values below a key that cannot be used are no faults
    // of their own.
    place_ = Place::kFaultyKey;
    ++pos_; // [
    // Before the quote, which is behind the minus.
    const bool is_deleted = Skip("-");
    std::string path;
    const bool read = Peek() == '"' ? ReadQuotedPath(&path) : ReadBarePath(&path);
    if (!read || !ReadLineEnd("the key"))
        return false;
    const auto below = PathBelowRoot(path);
    if (!below)
        return Refuse(offset, "cannot use the key " + text::Shown(path),
                      std::string("there is only the root ") + kRegRootName + " here", kKeyForm);
    // What the registry would refuse, it says here, with the place in the file, and before anything
    // is done.
    if (!CheckPath(offset, *below))
        return false;
    if (is_deleted && below->empty())
        return Refuse(offset, std::string("cannot delete ") + kRegRootName, "it is the root",
                      "name a key below it");
    place_ = is_deleted ? Place::kDeletedKey : Place::kKey;
    path_ = *below;
    const auto kind = is_deleted ? RegStep::Kind::kDeleteKey : RegStep::Kind::kCreateKey;
    steps_->push_back({kind, path_, {}});
    return true;
}

bool RegReader::ReadQuotedPath(std::string *path)
{
    if (!ReadQuoted("the key", path))
        return false;
    return Skip("]") || Refuse(pos_, "cannot read the key", "its ] is missing", kKeyForm);
}

// Up to the last ] of the line, since names may hold one; or to the first that a comment follows.
bool RegReader::ReadBarePath(std::string *path)
{
    const std::string_view rest = RestOfLine();
    size_t end = rest.rfind(']');
    for (size_t i = 0; i < rest.size(); ++i) {
        const size_t next = rest.find_first_not_of(" \t", i + 1);
        if (rest[i] == ']' && next != std::string_view::npos && rest[next] == ';') {
            end = i;
            break;
        }
    }
    if (end == std::string_view::npos) {
        pos_ += rest.size();
        return Refuse(pos_, "cannot read the key", "its ] is missing", kKeyForm);
    }
    *path = rest.substr(0, end);
    pos_ += end + 1;
    return true;
}

bool RegReader::CheckPath(size_t offset, const std::string &path)
{
    if (path.empty())
        return true;
    if (KeyLevels(path) > kMaxKeyLevels)
        return Refuse(offset, "cannot use the key " + text::Shown(path),
                      "it lies in more than " + std::to_string(kMaxKeyLevels) + " keys",
                      "choose a shorter path");
    for (size_t begin = 0; begin <= path.size();) {
        const size_t end = std::min(path.find('\\', begin), path.size());
        const std::string name = path.substr(begin, end - begin);
        if (name.empty())
            return Refuse(offset, "cannot use the key " + text::Shown(path),
                          "a name in it is empty",
                          "write one backslash between two names, and none at the end");
        // A zero byte comes from an escape: the calls of the registry end a name at it.
        if (name.size() > host::kMaxKeyName || name.find('\0') != std::string::npos)
            return Refuse(offset, "cannot use the key name " + text::Shown(name),
                          "it has more than 255 bytes, or a zero byte", "choose a shorter name");
        begin = end + 1;
    }
    return true;
}

// ---- values ----

bool RegReader::ReadValue()
{
    const size_t offset = pos_;
    host::RegValue value;
    bool is_deleted = false;
    if (!ReadName(&value.name))
        return false;
    SkipBlanks();
    if (!Skip("="))
        return Refuse(pos_, "cannot read the value " + text::Shown(value.name),
                      "there is no = behind its name", "write \"name\"=data");
    SkipBlanks();
    if (!ReadData(offset, &value, &is_deleted) || !ReadLineEnd("the data"))
        return false;
    // It was read for its own faults, and is not stored: the file is refused anyway.
    if (place_ == Place::kFaultyKey)
        return true;
    if (place_ == Place::kNowhere)
        return Refuse(offset, "cannot place the value " + text::Shown(value.name),
                      "no key stands before it", kKeyForm);
    // Not silently created again: what is meant is not clear.
    if (place_ == Place::kDeletedKey)
        return Refuse(offset, "cannot place the value " + text::Shown(value.name),
                      "the key before it is deleted",
                      "write the key once more, without the -, before its values");
    const auto kind = is_deleted ? RegStep::Kind::kDeleteValue : RegStep::Kind::kSetValue;
    steps_->push_back({kind, path_, std::move(value)});
    return true;
}

bool RegReader::ReadName(std::string *name)
{
    const size_t offset = pos_;
    if (Skip("@"))
        return true; // the value without a name
    if (!ReadQuoted("the name of a value", name))
        return false;
    if (name->size() > host::kMaxValueName || name->find('\0') != std::string::npos)
        return Refuse(offset, "cannot use the value name " + text::Shown(*name),
                      "it has more than 16383 bytes, or a zero byte", "choose a shorter name");
    return true;
}

bool RegReader::ReadData(size_t name_offset, host::RegValue *value, bool *is_deleted)
{
    bool good = false;
    if (Skip("-")) {
        *is_deleted = true;
        return true;
    }
    if (Peek() == '"') {
        value->type = REG_SZ;
        good = ReadText(&value->data);
    } else if (Skip("dword:")) {
        value->type = REG_DWORD;
        good = ReadNumber(&value->data);
    } else if (Skip("hex:")) {
        value->type = REG_BINARY;
        good = ReadBytes(&value->data);
    } else if (Skip("hex(")) {
        good = ReadType(&value->type) && ReadBytes(&value->data);
    } else {
        return Refuse(pos_, "cannot read the data of the value " + text::Shown(value->name),
                      "it has none of the forms that are known", kDataForms);
    }
    // At the name, where people look; the data may end many lines below.
    if (good && value->data.size() > host::kMaxValueSize)
        return Refuse(name_offset, "cannot use the value " + text::Shown(value->name),
                      "it has " + std::to_string(value->data.size()) + " bytes",
                      "a value has at most 1 MiB");
    return good;
}

bool RegReader::ReadText(std::string *data)
{
    const size_t offset = pos_;
    if (!ReadQuoted("the text", data))
        return false;
    // Whoever reads the value as a text would get a part of it.
    if (data->find('\0') != std::string::npos)
        return Refuse(offset, "cannot read the text", "it has a zero byte in it",
                      "write its bytes as hex(1):");
    *data += '\0'; // which is stored with it
    return true;
}

bool RegReader::ReadNumber(std::string *data)
{
    const size_t offset = pos_;
    const auto number = ReadHexNumber();
    if (!number)
        return Refuse(offset, "cannot read the number", "it is not of the form that is known",
                      "write one to eight hexadecimal digits, such as dword:0000002a");
    // In the byte order of this host, as the registry keeps numbers.
    data->assign(reinterpret_cast<const char *>(&*number), sizeof *number);
    return true;
}

bool RegReader::ReadType(uint32_t *type)
{
    const size_t offset = pos_;
    const auto number = ReadHexNumber();
    if (!number || !Skip("):"))
        return Refuse(offset, "cannot read the type of the data",
                      "it is not of the form that is known",
                      "write the number of the type in hexadecimal digits, such as hex(7):61,00");
    *type = *number;
    return true;
}

std::optional<uint32_t> RegReader::ReadHexNumber()
{
    constexpr size_t kMaxDigits = 8;
    uint32_t number = 0;
    size_t digits = 0;
    for (; DigitOf(Peek()) >= 0; ++pos_, ++digits)
        // More than eight digits push the first ones out; their count refuses them below.
        number = number << 4U | static_cast<uint32_t>(DigitOf(Peek()));
    return digits >= 1 && digits <= kMaxDigits ? std::optional(number) : std::nullopt;
}

bool RegReader::ReadBytes(std::string *data)
{
    SkipBlanks();
    // There may be none; a backslash before the first one is as good as one behind a comma.
    if (AtLineEnd() || Peek() == ';')
        return true;
    for (;;) {
        if (!ReadContinuation())
            return false;
        const int high = DigitOf(Peek());
        const int low = DigitOf(Peek(1));
        if (high < 0 || low < 0)
            return Refuse(pos_, "cannot read the bytes", "two hexadecimal digits must stand here",
                          "write bytes as 01,ab,ff; a line that goes on ends in a comma and a "
                          "backslash");
        *data += static_cast<char>(high << 4 | low);
        pos_ += 2;
        SkipBlanks();
        if (!Skip(","))
            return true;
        SkipBlanks();
    }
}

// Goes on in the next line when there is a backslash at the end of this one.
bool RegReader::ReadContinuation()
{
    while (Peek() == '\\') {
        const size_t backslash = pos_++;
        SkipBlanks();
        if (!AtLineEnd())
            return Refuse(backslash, "cannot read the bytes",
                          "a backslash stands before the end of the line",
                          "end the line behind it");
        SkipLine();
        if (AtEnd())
            return Refuse(backslash, "cannot read the bytes", "the file ends before they do",
                          "write the next line, or end the bytes without a comma and a backslash");
        SkipBlanks();
    }
    return true;
}

// ---- texts in quotes ----

bool RegReader::ReadQuoted(const std::string &what, std::string *text)
{
    const size_t offset = pos_++;
    while (Peek() != '"') {
        if (AtLineEnd())
            return Refuse(offset, "cannot read " + what, "its closing quote is missing",
                          "end it on this line; a line end in it is written \\x0A");
        if (Peek() == '\\') {
            if (!ReadEscape(what, text))
                return false;
        } else {
            *text += text_[pos_++];
        }
    }
    ++pos_;
    return true;
}

bool RegReader::ReadEscape(const std::string &what, std::string *text)
{
    const char c = Peek(1);
    if (c == '\\' || c == '"') {
        *text += c;
        pos_ += 2;
        return true;
    }
    if (c != 'x' || DigitOf(Peek(2)) < 0 || DigitOf(Peek(3)) < 0)
        return Refuse(pos_, "cannot read " + what, "its backslash begins nothing that is known",
                      kEscapes);
    *text += static_cast<char>(DigitOf(Peek(2)) << 4 | DigitOf(Peek(3)));
    pos_ += 4;
    return true;
}

} // namespace

ParsedRegText ParseRegText(std::string_view bytes)
{
    // UTF-16 and a byte-order mark are taken here; from then on, all offsets are those of the UTF-8
    // text. What is no text in any of these encodings is not read as lines: each of them could be a
    // fault.
    text::DecodedText decoded = text::DecodeText(bytes);
    ParsedRegText parsed;
    parsed.issues = std::move(decoded.issues);
    if (!parsed.issues.empty())
        return parsed;
    text::IssueList issues(decoded.text);
    RegReader(decoded.text, &issues, &parsed.steps).ReadFile();
    parsed.issues = issues.Take();
    return parsed;
}

} // namespace regfile
