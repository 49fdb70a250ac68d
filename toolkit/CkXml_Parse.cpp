// The forgiving one-pass parser of the toolkit's XML tree. Nothing is validated: end tags are
// not compared with their start tags, and input that stops anywhere leaves the tree as it stood.
// The parser keeps no stack of its own; the open element's parent pointer is the way back up, so
// nesting of any depth costs no stack.

#include "toolkit/CkXml_Tree.h"

#include <cstring>

namespace ckxml {
namespace {

inline bool isWhite(char c)
{
    return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}

// Where the scans of a start tag stop, one table lookup per byte.
enum : unsigned char {
    kEndsTagName = 1,        // blank, "/", ">", and "<", which the name leaves out
    kEndsAttributeName = 2,  // blank, "=", "/", ">"
    kEndsValue = 4,          // either quote, and "&", which needs resolving
    kKeptInName = 8,         // bytes that a cleaned attribute name keeps
};

// Made at compile time: no parse can run before it is ready.
struct StopTable {
    unsigned char bits[256] = {};
    constexpr StopTable()
    {
        for (unsigned char c : {' ', '\t', '\r', '\n', '/', '>'})
            bits[c] |= kEndsTagName | kEndsAttributeName;
        bits[static_cast<unsigned char>('<')] |= kEndsTagName;
        bits[static_cast<unsigned char>('=')] |= kEndsAttributeName;
        for (unsigned char c : {'"', '\'', '&'})
            bits[c] |= kEndsValue;
        // Bytes of 128 and above, ASCII letters and digits and ". - _ : !".
        for (int c = 0; c < 256; ++c) {
            if (c >= 128 || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '.' ||
                c == '-' || c == '_' || c == ':' || c == '!')
                bits[c] |= kKeptInName;
        }
    }
};

constexpr StopTable kStops;

inline bool stopsAt(char c, unsigned char kind)
{
    return (kStops.bits[static_cast<unsigned char>(c)] & kind) != 0;
}

inline char lowerAscii(char c)
{
    return (c >= 'A' && c <= 'Z') ? static_cast<char>(c - 'A' + 'a') : c;
}

// True if [p, end) starts with the lower-case literal, ignoring ASCII case.
bool startsNoCase(const char* p, const char* end, const char* literal)
{
    for (; *literal; ++literal, ++p)
        if (p >= end || lowerAscii(*p) != *literal)
            return false;
    return true;
}

bool startsWith(const char* p, const char* end, const char* literal)
{
    std::size_t n = std::strlen(literal);
    return static_cast<std::size_t>(end - p) >= n && std::memcmp(p, literal, n) == 0;
}

// The first occurrence of the literal in [p, end), or end.
const char* findText(const char* p, const char* end, const char* literal)
{
    std::size_t n = std::strlen(literal);
    while (static_cast<std::size_t>(end - p) >= n) {
        const char* hit = static_cast<const char*>(std::memchr(p, literal[0], static_cast<std::size_t>(end - p)));
        if (hit == nullptr || static_cast<std::size_t>(end - hit) < n)
            return end;
        if (std::memcmp(hit, literal, n) == 0)
            return hit;
        p = hit + 1;
    }
    return end;
}

const char* findChar(const char* p, const char* end, char c)
{
    const char* hit = static_cast<const char*>(std::memchr(p, c, static_cast<std::size_t>(end - p)));
    return hit ? hit : end;
}

// The references that attribute values are held without, each with its character. Values are
// held resolved: "&amp;" is undone in the same pass as the others, so "&amp;lt;" comes out as
// "&lt;". Every other reference stays as it stands.
struct Reference {
    const char* name;  // behind the "&"
    std::size_t length;
    char c;
};
const Reference kValueReferences[] = {{"#x9;", 4, '\t'}, {"#xA;", 4, '\n'}, {"#xD;", 4, '\r'}, {"lt;", 3, '<'},
                                      {"gt;", 3, '>'},    {"quot;", 5, '"'}, {"apos;", 5, '\''}, {"amp;", 4, '&'}};

// Writes the value with its references resolved to out, and gives its size. Resolving only
// shortens it.
std::size_t resolveInto(const char* begin, const char* end, char* out)
{
    char* const start = out;
    for (const char* p = begin; p < end;) {
        if (*p != '&') {
            *out++ = *p++;
            continue;
        }
        const char* name = p + 1;
        char c = '&';
        std::size_t skip = 1;
        for (const Reference& r : kValueReferences) {
            if (static_cast<std::size_t>(end - name) >= r.length && std::memcmp(name, r.name, r.length) == 0) {
                c = r.c;
                skip = r.length + 1;
                break;
            }
        }
        *out++ = c;
        p += skip;
    }
    return static_cast<std::size_t>(out - start);
}

// A cleaned name keeps only some bytes, and one that would then begin with a digit, "-" or "."
// gets an "A" in front.
inline bool keptInName(char c)
{
    return (kStops.bits[static_cast<unsigned char>(c)] & kKeptInName) != 0;
}

inline bool needsPrefix(char c)
{
    return (c >= '0' && c <= '9') || c == '-' || c == '.';
}

// Writes the cleaned name to out, which has room for one byte more than the raw name, and gives
// its size; 0 when nothing is left of it. allKept says the name has no byte to remove.
std::size_t cleanNameInto(const char* begin, const char* end, bool allKept, char* out)
{
    if (allKept && begin < end && !needsPrefix(*begin)) {
        copyBytes(out, begin, static_cast<std::size_t>(end - begin));
        return static_cast<std::size_t>(end - begin);
    }
    std::size_t size = 0;
    for (const char* q = begin; q < end; ++q) {
        if (keptInName(*q))
            out[1 + size++] = *q;
    }
    if (size == 0)
        return 0;
    if (needsPrefix(out[1])) {
        out[0] = 'A';
        return size + 1;
    }
    std::memmove(out, out + 1, size);
    return size;
}

// Where an attribute value stands in the text, and whether it has references to resolve.
struct ValueSpan {
    const char* begin = nullptr;
    const char* end = nullptr;
    bool reference = false;

    std::size_t size() const { return static_cast<std::size_t>(end - begin); }
    // The value as held, written to out (room for size()); gives its size.
    std::size_t writeTo(char* out) const
    {
        if (reference)
            return resolveInto(begin, end, out);
        copyBytes(out, begin, size());
        return size();
    }
};

// Finds one attribute value at p (just behind the "=" and any blanks). A quoted value runs to
// the closing quote of its kind; an unquoted one to the next quote of either kind. The closing
// quote is consumed. Values are short as a rule: one pass finds the end and any reference.
ValueSpan scanValue(const char*& p, const char* end)
{
    ValueSpan value;
    if (p >= end)
        return value;
    const char quote = (*p == '"' || *p == '\'') ? *p : '\0';
    const char* begin = quote != '\0' ? p + 1 : p;
    const char* close = begin;
    for (;;) {
        while (close < end && !stopsAt(*close, kEndsValue))
            ++close;
        if (close >= end)
            break;
        if (*close == '&') {
            value.reference = true;
            ++close;
            continue;
        }
        // A quote: the closing one, or for an unquoted value either kind.
        if (quote == '\0' || *close == quote)
            break;
        ++close;
    }
    p = close < end ? close + 1 : end;
    value.begin = begin;
    value.end = close;
    return value;
}

class Parser {
public:
    Parser(const char* text, std::size_t size) : p_(text), end_(text + size) {}

    std::shared_ptr<TreeInfo> run()
    {
        tree_ = makeTree("empty");
        root_ = tree_->root;
        current_ = root_;
        p_ = findChar(p_, end_, '<');
        while (p_ < end_) {
            if (*p_ != '<') {
                text();
                continue;
            }
            ++p_;
            if (p_ >= end_)
                break;
            if (!markup())
                break;
        }
        return std::move(tree_);
    }

private:
    // Text up to the next "<", trimmed; a second piece joins the first with one blank. Text
    // outside the root element has no element to go to and is dropped.
    void text()
    {
        // Mostly there is only the white space of indentation between two tags.
        const char* b = p_;
        while (b < end_ && isWhite(*b))
            ++b;
        if (b >= end_ || *b == '<') {
            p_ = b;
            return;
        }
        const char* e = findChar(b, end_, '<');
        p_ = e;
        while (e > b && isWhite(e[-1]))
            --e;
        if (!rootNamed_)
            return;
        Text& content = current_->content;
        if (!content.empty())
            tree_->append(content, " ");
        tree_->append(content, std::string_view(b, static_cast<std::size_t>(e - b)));
        lastWasCdata_ = false;
    }

    // One construct behind a "<". False when parsing is over.
    bool markup()
    {
        const char c = *p_;
        if (c == '!') {
            if (startsWith(p_, end_, "!--")) {
                const char* close = findText(p_ + 3, end_, "-->");
                p_ = close < end_ ? close + 3 : end_;
            } else if (startsWith(p_, end_, "![CDATA[")) {
                cdata();
            } else if (startsNoCase(p_, end_, "!doctype")) {
                doctype();
            } else {
                skipPast('>');
            }
            return true;
        }
        if (c == '?') {
            if (startsNoCase(p_, end_, "?xml ")) {
                declaration();
            } else if (startsNoCase(p_, end_, "?xml-stylesheet")) {
                tree_->styleSheets.push_back(instruction());
            } else {
                tree_->otherInstructions += instruction();
                tree_->otherInstructions.push_back('\n');
            }
            return true;
        }
        lastWasCdata_ = false;
        if (c == '/') {
            // The name in an end tag is never looked at: it closes whatever is open.
            skipPast('>');
            return close();
        }
        return startTag();
    }

    void skipPast(char c)
    {
        const char* hit = findChar(p_, end_, c);
        p_ = hit < end_ ? hit + 1 : end_;
    }

    // Closes the open element; closing the root ends the parse.
    bool close()
    {
        if (current_ == root_)
            return false;
        current_ = current_->parent;
        return true;
    }

    void cdata()
    {
        const char* begin = p_ + 8;
        const char* close = findText(begin, end_, "]]>");
        p_ = close < end_ ? close + 3 : end_;
        if (!rootNamed_)
            return;
        Text& content = current_->content;
        // Sections that follow each other directly make one text.
        if (!content.empty() && !lastWasCdata_)
            tree_->append(content, " ");
        tree_->append(content, std::string_view(begin, static_cast<std::size_t>(close - begin)));
        current_->cdata = true;
        lastWasCdata_ = true;
    }

    // The DOCTYPE up to its matching ">", counting the brackets of an internal subset.
    void doctype()
    {
        const char* begin = p_ - 1;
        std::size_t depth = 1;
        const char* q = p_;
        for (; q < end_; ++q) {
            if (*q == '<') {
                ++depth;
            } else if (*q == '>') {
                if (--depth == 0)
                    break;
            }
        }
        const char* stop = q < end_ ? q + 1 : end_;
        tree_->doctype.assign(begin, stop);
        tree_->doctype.push_back('\n');
        p_ = stop;
    }

    // A processing instruction as it stood, from "<" to "?>".
    std::string instruction()
    {
        const char* begin = p_ - 1;
        const char* close = findText(p_, end_, "?>");
        p_ = close < end_ ? close + 2 : end_;
        return std::string(begin, p_);
    }

    void declaration()
    {
        DeclarationSet& set = tree_->declaration;
        set.clear();
        p_ += 5;
        while (p_ < end_) {
            while (p_ < end_ && isWhite(*p_))
                ++p_;
            if (p_ >= end_)
                return;
            if (*p_ == '>') {
                ++p_;
                return;
            }
            if (*p_ == '?') {
                ++p_;
                continue;
            }
            const char* nameBegin = p_;
            while (p_ < end_ && !isWhite(*p_) && *p_ != '=' && *p_ != '?' && *p_ != '>')
                ++p_;
            std::string name;
            for (const char* q = nameBegin; q < p_; ++q)
                if (*q != '"' && *q != '\'' && *q != '<')
                    name.push_back(*q);
            const ValueSpan span = equalsAndValue();
            std::string value(span.size(), '\0');
            value.resize(span.writeTo(&value[0]));
            if (!name.empty())
                set.emplace_back(std::move(name), std::move(value));
        }
    }

    // Behind an attribute name: an "=" and a value, or nothing and an empty value.
    ValueSpan equalsAndValue()
    {
        const char* q = p_;
        while (q < end_ && isWhite(*q))
            ++q;
        if (q >= end_ || *q != '=')
            return ValueSpan();
        p_ = q + 1;
        while (p_ < end_ && isWhite(*p_))
            ++p_;
        return scanValue(p_, end_);
    }

    bool startTag()
    {
        TreeNode* element = nullptr;
        const bool more = startTagInto(element);
        takeAttributes(element);
        return more;
    }

    bool startTagInto(TreeNode*& element)
    {
        const char* q = p_;
        bool stray = false;  // a "<" in the name, left out of it
        for (;;) {
            while (q < end_ && !stopsAt(*q, kEndsTagName))
                ++q;
            if (q >= end_ || *q != '<')
                break;
            stray = true;
            ++q;
        }
        std::string_view name(p_, static_cast<std::size_t>(q - p_));
        if (stray) {
            char* kept = tree_->arena.chars(name.size());
            std::size_t size = 0;
            for (char c : name)
                if (c != '<')
                    kept[size++] = c;
            name = std::string_view(kept, size);
        }
        p_ = q;

        if (!rootNamed_) {
            tree_->assign(root_->tag, name);
            rootNamed_ = true;
            element = root_;
        } else {
            element = tree_->appendChild(current_, name);
        }
        current_ = element;

        while (p_ < end_) {
            while (p_ < end_ && isWhite(*p_))
                ++p_;
            if (p_ >= end_)
                return true;
            if (*p_ == '>') {
                ++p_;
                return true;
            }
            if (*p_ == '/') {
                ++p_;
                if (p_ < end_ && *p_ == '>') {
                    ++p_;
                    return close();
                }
                continue;
            }
            // None of the bytes that end a name is kept in one, so a clean name ends where the
            // kept bytes do.
            const char* nameBegin = p_;
            while (p_ < end_ && keptInName(*p_))
                ++p_;
            const bool allKept = p_ >= end_ || stopsAt(*p_, kEndsAttributeName);
            while (p_ < end_ && !stopsAt(*p_, kEndsAttributeName))
                ++p_;
            const char* nameEnd = p_;
            const ValueSpan value = equalsAndValue();
            const std::size_t rawName = static_cast<std::size_t>(nameEnd - nameBegin);
            if (rawName == 0)
                continue;
            char* data = tree_->arena.chars(rawName + 1 + value.size());
            const Size nameSize = checkedSize(cleanNameInto(nameBegin, nameEnd, allKept, data));
            // A name with nothing left after cleaning could not be written back.
            if (nameSize == 0)
                continue;
            const Size valueSize = checkedSize(value.writeTo(data + nameSize));
            scratch_.emplace_back();
            Attribute& attribute = scratch_.back();
            attribute.data = data;
            attribute.nameSize = nameSize;
            attribute.valueSize = valueSize;
        }
        return true;
    }

    // Attributes are gathered in a scratch list and copied over into an array of the right size.
    void takeAttributes(TreeNode* element)
    {
        if (scratch_.empty())
            return;
        tree_->reserve(element->attributes, scratch_.size());
        std::memcpy(static_cast<void*>(element->attributes.items), scratch_.data(), scratch_.size() * sizeof(Attribute));
        element->attributes.count = static_cast<Size>(scratch_.size());
        scratch_.clear();
    }

    const char* p_;
    const char* const end_;
    std::shared_ptr<TreeInfo> tree_;
    TreeNode* root_ = nullptr;
    TreeNode* current_ = nullptr;
    bool rootNamed_ = false;
    bool lastWasCdata_ = false;
    std::vector<Attribute> scratch_;
};

} // namespace

std::shared_ptr<TreeInfo> makeTree(const char* rootTag)
{
    std::shared_ptr<TreeInfo> tree = std::make_shared<TreeInfo>();
    tree->root = tree->newNode(rootTag, nullptr);
    return tree;
}

std::shared_ptr<TreeInfo> parse(const char* text, std::size_t size)
{
    return Parser(text, size).run();
}

} // namespace ckxml
