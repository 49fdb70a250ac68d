#ifndef VELLUMENT_TOOLKIT_CKXML_TREE_H
#define VELLUMENT_TOOLKIT_CKXML_TREE_H

// The element tree behind CkXml. All text in here is UTF-8.

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <algorithm>
#include <functional>
#include <memory>
#include <mutex>
#include <new>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <vector>

class CkXml;

#if defined(__SANITIZE_ADDRESS__)
#define VELLUMENT_CKXML_GUARDED 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define VELLUMENT_CKXML_GUARDED 1
#endif
#endif

namespace ckxml {

struct TreeInfo;

// Set on every live node; a node without it is refused.
const unsigned char kValidMark = 206;

// Memory of one tree: nodes, their lists and their text are carved out of blocks that are freed
// all together when the tree dies. Nothing in the tree is freed on its own, so nothing in it
// needs a destructor, and a tree of any depth is freed without recursion.
class Arena {
public:
    Arena() = default;
    Arena(const Arena&) = delete;
    Arena& operator=(const Arena&) = delete;
    ~Arena();

    // Throws std::bad_alloc when memory runs out.
    void* allocate(std::size_t size, std::size_t align)
    {
#ifdef VELLUMENT_CKXML_GUARDED
        return allocateGuarded(size, align);
#else
        return bump(size, align);
#endif
    }
    char* chars(std::size_t size) { return static_cast<char*>(allocate(size, 1)); }
    template <class T>
    T* array(std::size_t count)
    {
        if (count > static_cast<std::size_t>(-1) / sizeof(T))
            throw std::bad_alloc();
        return static_cast<T*>(allocate(count * sizeof(T), alignof(T)));
    }

private:
    void* bump(std::size_t size, std::size_t align)
    {
        const std::size_t pad = (align - (reinterpret_cast<std::uintptr_t>(next_) & (align - 1))) & (align - 1);
        const std::size_t room = static_cast<std::size_t>(end_ - next_);
        if (pad <= room && size <= room - pad) {
            char* p = next_ + pad;
            next_ = p + size;
            return p;
        }
        return allocateSlow(size, align);
    }
    void* allocateSlow(std::size_t size, std::size_t align);
    // Under the address sanitizer every piece is fenced off, so that writing past one is caught.
    void* allocateGuarded(std::size_t size, std::size_t align);

    struct Block {
        Block* previous;
        std::size_t bytes;
    };
    Block* last_ = nullptr;
    char* next_ = nullptr;
    char* end_ = nullptr;
    std::size_t blockSize_ = 0;
};

// Sizes in the tree are 32 bits wide, which keeps its nodes small; a text or list that would
// outgrow them is refused like memory that runs out.
typedef std::uint32_t Size;
const std::size_t kMaxSize = 0xFFFFFFFFu;

inline Size checkedSize(std::size_t size)
{
    if (size > kMaxSize)
        throw std::bad_alloc();
    return static_cast<Size>(size);
}

// Text of the tree, in its arena. Empty means none.
struct Text {
    char* data = nullptr;
    Size size = 0;
    Size capacity = 0;

    std::string_view view() const { return std::string_view(data, size); }
    std::string str() const { return std::string(data, size); }
    bool empty() const { return size == 0; }
};

// An array in the tree's arena; it grows by moving to a larger one.
template <class T>
struct List {
    T* items = nullptr;
    Size count = 0;
    Size capacity = 0;

    std::size_t size() const { return count; }
    bool empty() const { return count == 0; }
    T& operator[](std::size_t i) const { return items[i]; }
    T* begin() const { return items; }
    T* end() const { return items + count; }
};

// The name and the value in one piece of the arena, the value right behind the name. Values are
// held resolved.
struct Attribute {
    char* data = nullptr;
    Size nameSize = 0;
    Size valueSize = 0;

    std::string_view name() const { return std::string_view(data, nameSize); }
    std::string_view value() const { return std::string_view(data + nameSize, valueSize); }
};

// Small texts are the rule in a tree; copying them inline spares a call per text.
inline void copyBytes(char* to, const char* from, std::size_t n)
{
    if (n > 16) {
        std::memcpy(to, from, n);
    } else if (n >= 8) {
        std::uint64_t head, tail;
        std::memcpy(&head, from, 8);
        std::memcpy(&tail, from + n - 8, 8);
        std::memcpy(to, &head, 8);
        std::memcpy(to + n - 8, &tail, 8);
    } else if (n >= 4) {
        std::uint32_t head, tail;
        std::memcpy(&head, from, 4);
        std::memcpy(&tail, from + n - 4, 4);
        std::memcpy(to, &head, 4);
        std::memcpy(to + n - 4, &tail, 4);
    } else {
        for (std::size_t i = 0; i < n; ++i)
            to[i] = from[i];
    }
}

struct TreeNode {
    Text tag;
    // As it stood in the source: entity references unresolved (raw text when cdata is set).
    Text content;
    // In order of appearance.
    List<Attribute> attributes;
    List<TreeNode*> children;
    TreeNode* parent = nullptr;
    TreeInfo* tree = nullptr;
    bool cdata = false;
    unsigned char mark = kValidMark;
};

static_assert(std::is_trivially_destructible<TreeNode>::value, "the arena frees nodes without destroying them");

// The "<?xml ...?>" line's pairs, which the writer edits on a copy.
typedef std::vector<std::pair<std::string, std::string>> DeclarationSet;

struct TreeInfo {
    Arena arena;
    TreeNode* root = nullptr;

    DeclarationSet declaration;
    std::vector<std::string> styleSheets;
    std::string otherInstructions;  // each with a LF behind it
    std::string doctype;            // with a LF behind it
    bool compact = false;

    std::mutex lock;

    TreeNode* newNode(std::string_view tag, TreeNode* parent)
    {
        TreeNode* n = new (arena.allocate(sizeof(TreeNode), alignof(TreeNode))) TreeNode;
        n->tag = copy(tag);
        n->parent = parent;
        n->tree = this;
        return n;
    }
    TreeNode* appendChild(TreeNode* parent, std::string_view tag)
    {
        TreeNode* n = newNode(tag, parent);
        push(parent->children, n);
        return n;
    }

    Text copy(std::string_view s)
    {
        Text t;
        if (s.empty())
            return t;
        t.size = t.capacity = checkedSize(s.size());
        t.data = arena.chars(s.size());
        copyBytes(t.data, s.data(), s.size());
        return t;
    }
    Attribute attribute(std::string_view name, std::string_view value)
    {
        Attribute a;
        a.nameSize = checkedSize(name.size());
        a.valueSize = checkedSize(value.size());
        a.data = arena.chars(std::size_t(a.nameSize) + a.valueSize);
        copyBytes(a.data, name.data(), name.size());
        copyBytes(a.data + a.nameSize, value.data(), value.size());
        return a;
    }
    // Replaces the text, in its own room when it fits.
    void assign(Text& t, std::string_view s)
    {
        if (s.size() > t.capacity) {
            t = copy(s);
            return;
        }
        if (!s.empty())
            std::memmove(t.data, s.data(), s.size());
        t.size = static_cast<Size>(s.size());
    }
    // Room doubles, so that text joined piece by piece costs linear time and space.
    void append(Text& t, std::string_view s)
    {
        if (s.size() > t.capacity - t.size) {
            const Size needed = checkedSize(std::size_t(t.size) + s.size());
            const Size capacity = std::max(static_cast<Size>(std::min<std::size_t>(std::size_t(t.capacity) * 2, kMaxSize)), needed);
            char* data = arena.chars(capacity);
            if (t.size != 0)
                std::memcpy(data, t.data, t.size);
            t.data = data;
            t.capacity = capacity;
        }
        if (!s.empty())
            std::memcpy(t.data + t.size, s.data(), s.size());
        t.size += static_cast<Size>(s.size());
    }

    template <class T>
    void reserve(List<T>& list, std::size_t capacity)
    {
        if (capacity <= list.capacity)
            return;
        const Size checked = checkedSize(capacity);
        T* items = arena.array<T>(checked);
        if (list.count != 0)
            std::memcpy(static_cast<void*>(items), static_cast<const void*>(list.items), list.count * sizeof(T));
        list.items = items;
        list.capacity = checked;
    }
    template <class T>
    void push(List<T>& list, const T& item)
    {
        if (list.count == list.capacity)
            reserve(list, list.capacity < 2 ? 2 : std::size_t(list.capacity) * 2);
        list.items[list.count++] = item;
    }
    // Inserts before position at; at or beyond the end appends.
    template <class T>
    void insert(List<T>& list, std::size_t at, const T& item)
    {
        if (at >= list.count) {
            push(list, item);
            return;
        }
        if (list.count == list.capacity)
            reserve(list, std::size_t(list.capacity) * 2);
        std::memmove(static_cast<void*>(list.items + at + 1), static_cast<const void*>(list.items + at),
                     (list.count - at) * sizeof(T));
        list.items[at] = item;
        ++list.count;
    }
};

// A new tree with a root of the given tag.
std::shared_ptr<TreeInfo> makeTree(const char* rootTag);

// The one-pass forgiving parser over UTF-8 text. Throws std::bad_alloc when memory runs out.
std::shared_ptr<TreeInfo> parse(const char* text, std::size_t size);

// The text form of a node and everything below it, UTF-8.
std::string writeText(const TreeNode* node, bool emitDeclaration);

// Resolves "&amp;", "&apos;", "&lt;", "&gt;" and "&quot;" in one pass, nothing else.
std::string resolveFive(std::string_view text);

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
std::string cleanNewTag(std::string_view tag);

} // namespace ckxml

// Lets the library's own code read the tree behind a cursor.
struct CkXmlAccess {
    // Runs fn with the cursor's node while holding the cursor's and the tree's locks; false, with
    // fn not called, when the cursor has no valid node.
    static bool withNode(CkXml& xml, const std::function<void(const ckxml::TreeNode&)>& fn);
};

#endif
