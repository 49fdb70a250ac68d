// The fixed text form of the toolkit's XML tree, and the small text helpers around it.

#include "toolkit/CkXml_Tree.h"

#include <algorithm>
#include <cstring>

namespace ckxml {
namespace {

// Indentation stops growing here, so that deep trees cost linear time and space.
const int kMaxIndentDepth = 50;

const char* attributeEscape(char c)
{
    switch (c) {
    case '"': return "&quot;";
    case '&': return "&amp;";
    case '>': return "&gt;";
    case '<': return "&lt;";
    case '\'': return "&apos;";
    case '\t': return "&#x9;";
    case '\n': return "&#xA;";
    case '\r': return "&#xD;";
    default: return nullptr;
    }
}

void appendEscapedAttribute(std::string& out, std::string_view value)
{
    // Most values have nothing to escape: runs between escapes go out whole.
    std::size_t start = 0;
    for (std::size_t i = 0; i < value.size(); ++i) {
        const char* escape = attributeEscape(value[i]);
        if (escape == nullptr)
            continue;
        out.append(value.data() + start, i - start);
        out += escape;
        start = i + 1;
    }
    out.append(value.data() + start, value.size() - start);
}

void appendAttribute(std::string& out, std::string_view name, std::string_view value)
{
    out.push_back(' ');
    out.append(name.data(), name.size());
    out += "=\"";
    appendEscapedAttribute(out, value);
    out.push_back('"');
}

// CDATA text without any section markers in it, removed in one pass so that taking one out can't
// leave another behind.
void appendCdataBody(std::string& out, std::string_view text)
{
    static const char kOpen[] = "<![CDATA[";
    static const char kClose[] = "]]>";
    const std::size_t start = out.size();
    for (char c : text) {
        out.push_back(c);
        const std::size_t n = out.size() - start;
        if (c == '>' && n >= 3 && out.compare(out.size() - 3, 3, kClose) == 0)
            out.resize(out.size() - 3);
        else if (c == '[' && n >= 9 && out.compare(out.size() - 9, 9, kOpen) == 0)
            out.resize(out.size() - 9);
    }
}

class Writer {
public:
    Writer(std::string& out, bool compact) : out_(out), compact_(compact) {}

    void lineEnd()
    {
        if (!compact_)
            out_ += "\r\n";
    }

    void indent(int depth)
    {
        if (!compact_)
            out_.append(static_cast<std::size_t>(std::min(depth, kMaxIndentDepth)) * 4, ' ');
    }

    // Writes the element's start, its content and, when it has no children, its end. True when
    // the element is left open for its children.
    bool open(const TreeNode* n, int depth)
    {
        indent(depth);
        out_.push_back('<');
        appendTag(n);
        for (const Attribute& a : n->attributes)
            appendAttribute(out_, a.name(), a.value());
        if (n->content.empty() && n->children.empty()) {
            out_ += "/>";
            lineEnd();
            return false;
        }
        out_.push_back('>');
        if (!n->content.empty()) {
            if (n->cdata) {
                out_ += "<![CDATA[";
                appendCdataBody(out_, n->content.view());
                out_ += "]]>";
            } else {
                // Content still holds its references, so it goes out as it is.
                out_.append(n->content.data, n->content.size);
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
    void appendTag(const TreeNode* n)
    {
        if (n->tag.empty())
            out_ += "nothing";
        else
            out_.append(n->tag.data, n->tag.size);
    }

    void closeTag(const TreeNode* n)
    {
        out_ += "</";
        appendTag(n);
        out_.push_back('>');
        lineEnd();
    }

    std::string& out_;
    bool compact_;
};

void writeDeclaration(std::string& out, const TreeInfo& tree)
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
    out += "<?xml";
    for (const auto& a : set)
        appendAttribute(out, a.first, a.second);
    out += "?>";
}

} // namespace

std::string writeText(const TreeNode* node, bool emitDeclaration)
{
    const TreeInfo& tree = *node->tree;
    std::string out;
    Writer writer(out, tree.compact);
    if (node->parent == nullptr) {
        if (emitDeclaration) {
            writeDeclaration(out, tree);
            writer.lineEnd();
        }
        for (const std::string& line : tree.styleSheets) {
            out += line;
            writer.lineEnd();
        }
        if (!tree.doctype.empty()) {
            out += tree.doctype;
            writer.lineEnd();
        }
        if (!tree.otherInstructions.empty()) {
            out += tree.otherInstructions;
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
    return out;
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
