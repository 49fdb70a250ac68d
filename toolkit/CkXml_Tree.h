#ifndef VELLUMENT_TOOLKIT_CKXML_TREE_H
#define VELLUMENT_TOOLKIT_CKXML_TREE_H

// The element tree behind CkXml. All text in here is UTF-8.

#include <cstddef>
#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <utility>
#include <vector>

class CkXml;

namespace ckxml {

struct TreeInfo;

// Set on every live node; a node without it is refused.
const unsigned char kValidMark = 206;

typedef std::vector<std::pair<std::string, std::string>> AttributeSet;

struct TreeNode {
    std::string tag;
    // As it stood in the source: entity references unresolved (raw text when cdata is set).
    // Empty means no content.
    std::string content;
    // In order of appearance; values are held resolved. Empty means none.
    AttributeSet attributes;
    std::vector<TreeNode*> children;
    TreeNode* parent = nullptr;
    TreeInfo* tree = nullptr;
    bool cdata = false;
    unsigned char mark = kValidMark;

    ~TreeNode() { mark = 0; }
};

// Nodes of one tree, made in chunks that grow with the tree and freed all together when the
// tree dies, without recursion, so a tree of any depth is freed safely.
class NodeStore {
public:
    NodeStore() = default;
    NodeStore(const NodeStore&) = delete;
    NodeStore& operator=(const NodeStore&) = delete;
    ~NodeStore()
    {
        for (Chunk& chunk : chunks_) {
            for (std::size_t i = 0; i < chunk.used; ++i)
                chunk.nodes[i].~TreeNode();
            ::operator delete(static_cast<void*>(chunk.nodes));
        }
    }

    TreeNode* make()
    {
        if (chunks_.empty() || chunks_.back().used == chunks_.back().capacity) {
            const std::size_t capacity = chunks_.empty() ? 4 : std::min<std::size_t>(chunks_.back().capacity * 2, 4096);
            chunks_.reserve(chunks_.size() + 1);
            Chunk chunk;
            chunk.nodes = static_cast<TreeNode*>(::operator new(capacity * sizeof(TreeNode)));
            chunk.capacity = capacity;
            chunks_.push_back(chunk);
        }
        Chunk& chunk = chunks_.back();
        TreeNode* n = new (&chunk.nodes[chunk.used]) TreeNode();
        ++chunk.used;
        return n;
    }

private:
    struct Chunk {
        TreeNode* nodes = nullptr;
        std::size_t used = 0;
        std::size_t capacity = 0;
    };
    std::vector<Chunk> chunks_;
};

struct TreeInfo {
    NodeStore store;
    TreeNode* root = nullptr;

    AttributeSet declaration;
    std::vector<std::string> styleSheets;
    std::string otherInstructions;  // each with a LF behind it
    std::string doctype;            // with a LF behind it
    bool compact = false;

    std::mutex lock;

    TreeNode* newNode(std::string tag, TreeNode* parent)
    {
        TreeNode* n = store.make();
        n->tag = std::move(tag);
        n->parent = parent;
        n->tree = this;
        return n;
    }
    TreeNode* appendChild(TreeNode* parent, std::string tag)
    {
        TreeNode* n = newNode(std::move(tag), parent);
        parent->children.push_back(n);
        return n;
    }
};

// A new tree with a root of the given tag.
std::shared_ptr<TreeInfo> makeTree(const char* rootTag);

// The one-pass forgiving parser over UTF-8 text. Throws std::bad_alloc when memory runs out.
std::shared_ptr<TreeInfo> parse(const char* text, std::size_t size);

// The text form of a node and everything below it, UTF-8.
std::string writeText(const TreeNode* node, bool emitDeclaration);

// Resolves "&amp;", "&apos;", "&lt;", "&gt;" and "&quot;" in one pass, nothing else.
std::string resolveFive(const std::string& text);

// Trail of one call for lastErrorText: what it was given, what failed, and how it ended.
class Trail {
public:
    void begin(const char* operation);
    void add(const char* name, const std::string& value);
    void message(const char* text);
    void end(bool success);
    const std::string& text() const { return text_; }

private:
    std::string text_;
};

// Follows a path from start. On failure returns null and logs the reason to the trail. With
// create, plain-tag and indexed segments that find nothing make the element instead.
TreeNode* walkPath(TreeNode* start, const std::string& path, const int registers[3], bool create, Trail& trail);

// A tag for a new element: trimmed, with its blanks turned into "_".
std::string cleanNewTag(const std::string& tag);

} // namespace ckxml

// Lets the library's own code read the tree behind a cursor.
struct CkXmlAccess {
    // Runs fn with the cursor's node while holding the cursor's and the tree's locks; false, with
    // fn not called, when the cursor has no valid node.
    static bool withNode(CkXml& xml, const std::function<void(const ckxml::TreeNode&)>& fn);
};

#endif
