// The path language of the toolkit's XML tree.

#include "toolkit/CkXml_Tree.h"

#include <cstring>

namespace ckxml {
namespace {

const char kNoChildTag[] = "No child with this tag.";
const char kNoChildContent[] = "No child with this content.";
const char kBadIndex[] = "Invalid array index.";
const char kNoDescendantTag[] = "No descendent with this tag.";
const char kNoDescendantContent[] = "No descendent with this tag and content.";
const char kNoDescendantAttribute[] = "No descendent with this tag and attribute + value.";
const char kNoParent[] = "no parent element.";
const char kNoNext[] = "no next sibling.";
const char kNoPrevious[] = "no previous sibling.";

// Indexes beyond this are refused rather than parsed: no element has that many children, and a
// path that creates elements must not be able to ask for billions of them.
const long kMaxIndex = 100000000L;
// A path that creates elements makes at most this many siblings to reach an index.
const long kMaxCreatedByIndex = 10000;

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

// A decimal index, or I, J or K in either case for a register. False for anything else.
bool parseIndex(const std::string& text, const int registers[3], long& index)
{
    if (text.size() == 1) {
        const char c = text[0];
        if (c == 'I' || c == 'i') {
            index = registers[0];
            return index >= 0;
        }
        if (c == 'J' || c == 'j') {
            index = registers[1];
            return index >= 0;
        }
        if (c == 'K' || c == 'k') {
            index = registers[2];
            return index >= 0;
        }
    }
    if (text.empty())
        return false;
    long value = 0;
    for (char c : text) {
        if (!isDigit(c))
            return false;
        value = value * 10 + (c - '0');
        if (value > kMaxIndex)
            return false;
    }
    index = value;
    return true;
}

// The content as GetChildContent gives it, for comparisons with text from a path.
std::string visibleContent(const TreeNode* n)
{
    return n->cdata ? n->content.str() : resolveFive(n->content.view());
}

bool tagMatches(std::string_view tag, std::string_view want, bool anyPrefix)
{
    if (tag == want)
        return true;
    if (!anyPrefix)
        return false;
    const std::size_t colon = tag.find(':');
    return colon != std::string_view::npos && tag.substr(colon + 1) == want;
}

std::size_t indexInParent(const TreeNode* n)
{
    const List<TreeNode*>& siblings = n->parent->children;
    for (std::size_t i = 0; i < siblings.size(); ++i)
        if (siblings[i] == n)
            return i;
    return siblings.size();
}

// The first descendant, breadth first, that the predicate accepts.
template <class Pred>
TreeNode* findDescendant(TreeNode* start, Pred pred)
{
    std::vector<const TreeNode*> queue;
    queue.push_back(start);
    for (std::size_t head = 0; head < queue.size(); ++head) {
        for (TreeNode* child : queue[head]->children) {
            if (pred(child))
                return child;
            queue.push_back(child);
        }
    }
    return nullptr;
}

TreeNode* fail(Trail& trail, const std::string& segment, const char* message)
{
    trail.add("segment", segment);
    trail.message(message);
    return nullptr;
}

TreeNode* step(TreeNode* n, const std::string& seg, const int registers[3], bool create, Trail& trail)
{
    if (seg == "..")
        return n->parent ? n->parent : fail(trail, seg, kNoParent);
    if (seg == "++" || seg == "--") {
        if (n->parent != nullptr) {
            const std::size_t i = indexInParent(n);
            const List<TreeNode*>& siblings = n->parent->children;
            if (seg == "++" && i + 1 < siblings.size())
                return siblings[i + 1];
            if (seg == "--" && i > 0 && i < siblings.size())
                return siblings[i - 1];
        }
        return fail(trail, seg, seg == "++" ? kNoNext : kNoPrevious);
    }

    if (seg.compare(0, 3, "/T/") == 0) {
        const std::string tag = seg.substr(3);
        TreeNode* found = findDescendant(n, [&](const TreeNode* d) { return d->tag.view() == tag; });
        return found ? found : fail(trail, seg, kNoDescendantTag);
    }
    if (seg.compare(0, 3, "/C/") == 0) {
        const std::string rest = seg.substr(3);
        const std::size_t comma = rest.find(',');
        const std::string tag = rest.substr(0, comma);
        const std::string content = comma == std::string::npos ? std::string() : rest.substr(comma + 1);
        TreeNode* found =
            findDescendant(n, [&](const TreeNode* d) { return d->tag.view() == tag && visibleContent(d) == content; });
        return found ? found : fail(trail, seg, kNoDescendantContent);
    }
    if (seg.compare(0, 3, "/A/") == 0) {
        const std::string rest = seg.substr(3);
        const std::size_t first = rest.find(',');
        const std::size_t second = first == std::string::npos ? std::string::npos : rest.find(',', first + 1);
        const std::string tag = rest.substr(0, first);
        const std::string name =
            first == std::string::npos ? std::string() : rest.substr(first + 1, second - (first + 1));
        const std::string value = second == std::string::npos ? std::string() : rest.substr(second + 1);
        TreeNode* found = findDescendant(n, [&](const TreeNode* d) {
            if (d->tag.view() != tag)
                return false;
            for (const Attribute& a : d->attributes)
                if (a.name() == name && a.value() == value)
                    return true;
            return false;
        });
        return found ? found : fail(trail, seg, kNoDescendantAttribute);
    }

    if (!seg.empty() && (seg[0] == '[' || isDigit(seg[0]))) {
        // The n-th child of any tag.
        std::string text = seg;
        if (seg[0] == '[') {
            if (seg.back() != ']')
                return fail(trail, seg, kBadIndex);
            text = seg.substr(1, seg.size() - 2);
        }
        long index = 0;
        if (!parseIndex(text, registers, index) || static_cast<std::size_t>(index) >= n->children.size())
            return fail(trail, seg, kBadIndex);
        return n->children[static_cast<std::size_t>(index)];
    }

    if (!seg.empty() && seg.back() == '}') {
        const std::size_t open = seg.find('{');
        if (open != std::string::npos) {
            // The tag in front of the braces is not compared.
            const std::string content = seg.substr(open + 1, seg.size() - open - 2);
            for (TreeNode* c : n->children)
                if (visibleContent(c) == content)
                    return c;
            return fail(trail, seg, kNoChildContent);
        }
    }

    std::string tag = seg;
    std::string indexText;
    bool indexed = false;
    if (!seg.empty() && seg.back() == ']') {
        const std::size_t open = seg.rfind('[');
        if (open != std::string::npos) {
            tag = seg.substr(0, open);
            indexText = seg.substr(open + 1, seg.size() - open - 2);
            indexed = true;
        }
    }
    const bool anyPrefix = tag.compare(0, 2, "*:") == 0;
    if (anyPrefix)
        tag.erase(0, 2);

    if (!indexed) {
        for (TreeNode* c : n->children)
            if (tagMatches(c->tag.view(), tag, anyPrefix))
                return c;
        if (create && !anyPrefix)
            return n->tree->appendChild(n, cleanNewTag(tag));
        return fail(trail, seg, kNoChildTag);
    }

    if (indexText == "*") {
        if (create && !anyPrefix)
            return n->tree->appendChild(n, cleanNewTag(tag));
        return fail(trail, seg, kBadIndex);
    }
    long index = 0;
    if (!parseIndex(indexText, registers, index))
        return fail(trail, seg, kBadIndex);
    long seen = 0;
    for (TreeNode* c : n->children) {
        if (tagMatches(c->tag.view(), tag, anyPrefix)) {
            if (seen == index)
                return c;
            ++seen;
        }
    }
    if (create && !anyPrefix && index - seen < kMaxCreatedByIndex) {
        // Makes the missing ones up to the index asked for.
        TreeNode* made = nullptr;
        const std::string newTag = cleanNewTag(tag);
        for (; seen <= index; ++seen)
            made = n->tree->appendChild(n, newTag);
        return made;
    }
    return fail(trail, seg, kBadIndex);
}

} // namespace

TreeNode* walkPath(TreeNode* start, const std::string& path, const int registers[3], bool create, Trail& trail)
{
    std::size_t end = path.size();
    if (end > 0 && path[end - 1] == '|')
        --end;
    TreeNode* n = start;
    std::size_t pos = 0;
    while (pos < end && n != nullptr) {
        std::size_t bar = path.find('|', pos);
        if (bar == std::string::npos || bar > end)
            bar = end;
        n = step(n, path.substr(pos, bar - pos), registers, create, trail);
        pos = bar + 1;
    }
    return n;
}

std::string cleanNewTag(std::string_view tag)
{
    auto white = [](char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\n'; };
    std::size_t b = 0;
    std::size_t e = tag.size();
    while (b < e && white(tag[b]))
        ++b;
    while (e > b && white(tag[e - 1]))
        --e;
    std::string out(tag.substr(b, e - b));
    for (char& c : out)
        if (white(c))
            c = '_';
    return out;
}

} // namespace ckxml
