// The fixed text form of the toolkit's XML tree, and the small text helpers around it.

#include "toolkit/CkXml_Tree.h"

#include <algorithm>
#include <cstring>
#include <memory>

namespace ckxml {
namespace {

// Indentation stops growing here, so that deep trees cost linear time and space.
const int kMaxIndentDepth = 50;

// What each byte of an attribute value is written as: its escape, padded to 8 bytes so that it
// goes out in one store, or (length 0) the byte itself.
struct AttributeEscapes {
    char text[256][8];
    unsigned char length[256];

    constexpr AttributeEscapes() : text(), length()
    {
        set('"', "&quot;");
        set('&', "&amp;");
        set('>', "&gt;");
        set('<', "&lt;");
        set('\'', "&apos;");
        set('\t', "&#x9;");
        set('\n', "&#xA;");
        set('\r', "&#xD;");
    }
    constexpr void set(unsigned char c, const char* escape)
    {
        unsigned char n = 0;
        for (; escape[n] != '\0'; ++n)
            text[c][n] = escape[n];
        length[c] = n;
    }
};
constexpr AttributeEscapes kAttributeEscapes{};
const std::size_t kLongestEscape = 6;

// The text being written. Bytes go in through a cursor once room for them is made, into pieces
// that double in size up to a limit and are joined once at the end: no byte is moved while the
// text grows, and the text itself is allocated at its final size. (Measuring the tree first
// would cost a walk over all of it.)
class Out {
public:
    Out() { newPiece(kFirstPiece); }

    // Makes room for n more bytes and gives the cursor.
    char* room(std::size_t n)
    {
        if (n > static_cast<std::size_t>(end_ - p_))
            spill(n);
        return p_;
    }
    void advance(char* to) { p_ = to; }

    void put(const char* s, std::size_t n)
    {
        copyBytes(room(n), s, n);
        p_ += n;
    }
    void put(std::string_view s) { put(s.data(), s.size()); }
    void put(char c)
    {
        *room(1) = c;
        ++p_;
    }

    std::string finish()
    {
        closePiece();
        std::string text;
        text.reserve(total_);
        for (const Piece& piece : pieces_)
            text.append(piece.bytes.get(), piece.size);
        return text;
    }

private:
    static constexpr std::size_t kFirstPiece = 64 * 1024;
    static constexpr std::size_t kLargestPiece = 8 * 1024 * 1024;

    struct Piece {
        std::unique_ptr<char[]> bytes;  // left uninitialised: only what is written is touched
        std::size_t size;
        std::size_t capacity;
    };

    void closePiece()
    {
        Piece& last = pieces_.back();
        last.size = static_cast<std::size_t>(p_ - last.bytes.get());
        total_ += last.size;
    }
    void newPiece(std::size_t capacity)
    {
        Piece piece{std::unique_ptr<char[]>(new char[capacity]), 0, capacity};
        p_ = piece.bytes.get();
        end_ = p_ + capacity;
        pieces_.push_back(std::move(piece));
    }
    void spill(std::size_t n)
    {
        closePiece();
        newPiece(std::max(n, std::min(pieces_.back().capacity * 2, kLargestPiece)));
    }

    std::vector<Piece> pieces_;
    std::size_t total_ = 0;
    char* p_ = nullptr;
    char* end_ = nullptr;
};

void appendAttribute(Out& out, std::string_view name, std::string_view value)
{
    // The 8-byte store of an escape may reach 2 bytes past it.
    char* p = out.room(name.size() + value.size() * kLongestEscape + 4 + (8 - kLongestEscape));
    *p++ = ' ';
    copyBytes(p, name.data(), name.size());
    p += name.size();
    *p++ = '=';
    *p++ = '"';
    for (char c : value) {
        const unsigned char b = static_cast<unsigned char>(c);
        const unsigned n = kAttributeEscapes.length[b];
        if (n == 0) {
            *p++ = c;
        } else {
            std::memcpy(p, kAttributeEscapes.text[b], 8);
            p += n;
        }
    }
    *p++ = '"';
    out.advance(p);
}

// CDATA text without any section markers in it, removed in one pass so that taking one out can't
// leave another behind.
void appendCdataBody(Out& out, std::string_view text)
{
    static const char kOpen[] = "<![CDATA[";
    static const char kClose[] = "]]>";
    char* const start = out.room(text.size());
    char* p = start;
    for (char c : text) {
        *p++ = c;
        const std::size_t n = static_cast<std::size_t>(p - start);
        if (c == '>' && n >= 3 && std::memcmp(p - 3, kClose, 3) == 0)
            p -= 3;
        else if (c == '[' && n >= 9 && std::memcmp(p - 9, kOpen, 9) == 0)
            p -= 9;
    }
    out.advance(p);
}

std::string_view tagOf(const TreeNode* n)
{
    return n->tag.empty() ? std::string_view("nothing") : n->tag.view();
}

std::size_t indentOf(int depth)
{
    return static_cast<std::size_t>(std::min(depth, kMaxIndentDepth)) * 4;
}

class Writer {
public:
    Writer(Out& out, bool compact) : out_(out), compact_(compact) {}

    void lineEnd()
    {
        if (!compact_)
            out_.put("\r\n", 2);
    }

    void indent(int depth)
    {
        if (compact_)
            return;
        const std::size_t n = indentOf(depth);
        char* p = out_.room(n);
        std::memset(p, ' ', n);
        out_.advance(p + n);
    }

    // Writes the element's start, its content and, when it has no children, its end. True when
    // the element is left open for its children.
    bool open(const TreeNode* n, int depth)
    {
        indent(depth);
        out_.put('<');
        out_.put(tagOf(n));
        for (const Attribute& a : n->attributes)
            appendAttribute(out_, a.name(), a.value());
        if (n->content.empty() && n->children.empty()) {
            out_.put("/>", 2);
            lineEnd();
            return false;
        }
        out_.put('>');
        if (!n->content.empty()) {
            if (n->cdata) {
                out_.put("<![CDATA[", 9);
                appendCdataBody(out_, n->content.view());
                out_.put("]]>", 3);
            } else {
                // Content still holds its references, so it goes out as it is.
                out_.put(n->content.data, n->content.size);
            }
        }
        if (n->children.empty()) {
            closeTag(n);
            return false;
        }
        lineEnd();
        return true;
    }

    void close(const TreeNode* n, int depth)
    {
        indent(depth);
        closeTag(n);
    }

private:
    void closeTag(const TreeNode* n)
    {
        out_.put("</", 2);
        out_.put(tagOf(n));
        out_.put('>');
        lineEnd();
    }

    Out& out_;
    bool compact_;
};

void writeDeclaration(Out& out, const TreeInfo& tree)
{
    DeclarationSet set = tree.declaration;
    auto find = [&set](const char* name) {
        return std::find_if(set.begin(), set.end(), [name](const DeclarationSet::value_type& a) { return a.first == name; });
    };
    if (find("encoding") == set.end()) {
        if (find("version") == set.end())
            set.insert(set.begin(), DeclarationSet::value_type("version", "1.0"));
        set.emplace_back("encoding", "utf-8");
    }
    std::stable_partition(set.begin(), set.end(),
                          [](const DeclarationSet::value_type& a) { return a.first != "standalone"; });
    out.put("<?xml", 5);
    for (const auto& a : set)
        appendAttribute(out, a.first, a.second);
    out.put("?>", 2);
}

} // namespace

std::string writeText(const TreeNode* node, bool emitDeclaration)
{
    const TreeInfo& tree = *node->tree;
    Out out;
    Writer writer(out, tree.compact);
    if (node->parent == nullptr) {
        if (emitDeclaration) {
            writeDeclaration(out, tree);
            writer.lineEnd();
        }
        for (const std::string& line : tree.styleSheets) {
            out.put(line);
            writer.lineEnd();
        }
        if (!tree.doctype.empty()) {
            out.put(tree.doctype);
            writer.lineEnd();
        }
        if (!tree.otherInstructions.empty()) {
            out.put(tree.otherInstructions);
            writer.lineEnd();
        }
    }

    // Elements left open for their children, with the index of the next child to write.
    struct Frame {
        const TreeNode* node;
        std::size_t next;
    };
    std::vector<Frame> open;
    if (writer.open(node, 0))
        open.push_back(Frame{node, 0});
    while (!open.empty()) {
        Frame& top = open.back();
        const int depth = static_cast<int>(open.size()) - 1;
        if (top.next < top.node->children.size()) {
            const TreeNode* child = top.node->children[top.next++];
            if (writer.open(child, depth + 1))
                open.push_back(Frame{child, 0});
        } else {
            writer.close(top.node, depth);
            open.pop_back();
        }
    }
    return out.finish();
}

std::string resolveFive(std::string_view text)
{
    std::size_t amp = text.find('&');
    if (amp == std::string_view::npos)
        return std::string(text);
    static const struct {
        const char* name;
        std::size_t length;
        char c;
    } kEntities[] = {{"&amp;", 5, '&'}, {"&apos;", 6, '\''}, {"&lt;", 4, '<'}, {"&gt;", 4, '>'}, {"&quot;", 6, '"'}};
    std::string out(text.substr(0, amp));
    out.reserve(text.size());
    for (std::size_t i = amp; i < text.size();) {
        if (text[i] != '&') {
            out.push_back(text[i++]);
            continue;
        }
        bool matched = false;
        for (const auto& e : kEntities) {
            if (text.compare(i, e.length, e.name) == 0) {
                out.push_back(e.c);
                i += e.length;
                matched = true;
                break;
            }
        }
        if (!matched)
            out.push_back(text[i++]);
    }
    return out;
}

void Trail::begin(const char* operation)
{
    text_.assign(operation);
    text_ += ":\r\n";
}

void Trail::add(const char* name, const std::string& value)
{
    text_ += "    ";
    text_ += name;
    text_ += ": ";
    text_ += value;
    text_ += "\r\n";
}

void Trail::message(const char* text)
{
    text_ += "    ";
    text_ += text;
    text_ += "\r\n";
}

void Trail::end(bool success)
{
    text_ += success ? "    Success.\r\n" : "    Failed.\r\n";
}

} // namespace ckxml
