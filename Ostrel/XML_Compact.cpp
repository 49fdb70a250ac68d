#include "Ostrel/XML_Compact.h"

#include <algorithm>
#include <cstring>

#include "Ostrel/XML_Data.h"
#include "Ostrel/XML_WellFormed_Checker.h"

namespace oxml {

namespace {

using Byte = unsigned char;

const std::size_t kMaxText = 0xFFFFFFF0u;  // offsets into the text are 32 bits

std::uint32_t hex_digit(Byte c)
{
    if (c >= '0' && c <= '9')
        return c - '0';
    return (c | 0x20) - 'a' + 10;
}

// The character in UTF-8; a reference is never shorter, so this writes behind the reading.
Byte* put_utf8(Byte* out, std::uint32_t code)
{
    if (code < 0x80) {
        *out++ = static_cast<Byte>(code);
    } else if (code < 0x800) {
        *out++ = static_cast<Byte>(0xC0 | code >> 6);
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    } else if (code < 0x10000) {
        *out++ = static_cast<Byte>(0xE0 | code >> 12);
        *out++ = static_cast<Byte>(0x80 | (code >> 6 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    } else {
        *out++ = static_cast<Byte>(0xF0 | code >> 18);
        *out++ = static_cast<Byte>(0x80 | (code >> 12 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code >> 6 & 0x3F));
        *out++ = static_cast<Byte>(0x80 | (code & 0x3F));
    }
    return out;
}

// Decodes the value at p up to its closing quote at stop, in place and NUL-terminated, as the
// parser's tree holds it: references replaced, each tab, line end or CR LF a single blank.
void decode_value(Byte* p, Byte* stop)
{
    Byte* out = p;
    while (p < stop) {
        const Byte c = *p;
        if (c == '&') {
            ++p;
            if (*p == '#') {
                std::uint32_t code = 0;
                if (p[1] == 'x') {
                    for (p += 2; p < stop && *p != ';'; ++p)
                        code = code * 16 + hex_digit(*p);
                } else {
                    for (++p; p < stop && *p != ';'; ++p)
                        code = code * 10 + (*p - '0');
                }
                out = put_utf8(out, code);
            } else {
                static const struct {
                    const char* name;
                    Byte c;
                } entities[] = {{"lt;", '<'}, {"gt;", '>'}, {"amp;", '&'}, {"quot;", '"'}, {"apos;", '\''}};
                for (const auto& e : entities) {
                    if (std::strncmp(reinterpret_cast<const char*>(p), e.name, std::strlen(e.name)) == 0) {
                        *out++ = e.c;
                        break;
                    }
                }
                while (p < stop && *p != ';')
                    ++p;
            }
            ++p;
        } else if (c == '\r') {
            *out++ = ' ';
            ++p;
            if (p < stop && *p == '\n')
                ++p;
        } else if (c == '\n' || c == '\t') {
            *out++ = ' ';
            ++p;
        } else {
            *out++ = c;
            ++p;
        }
    }
    *out = '\0';
}

} // namespace

std::uint32_t CompactTree::intern(const char* name, std::size_t length)
{
    const std::string_view key(name, length);
    auto found = name_indexes_.find(key);
    if (found != name_indexes_.end())
        return found->second;
    const std::uint32_t index = static_cast<std::uint32_t>(names_.size());
    names_.emplace_back(key);
    name_texts_.push_back(names_.back().c_str());
    name_indexes_.emplace(std::string_view(names_.back()), index);
    return index;
}

std::uint32_t CompactTree::name_index(const char* utf8) const
{
    auto found = name_indexes_.find(std::string_view(utf8));
    return found == name_indexes_.end() ? kNone : found->second;
}

void CompactTree::clear()
{
    elements_.clear();
    attributes_.clear();
    names_.clear();
    name_texts_.clear();
    name_indexes_.clear();
    to_decode_.clear();
}

CompactTree::Outcome CompactTree::build(std::string& bytes, WellFormedResult& check)
{
    clear();
    if (bytes.size() > kMaxText)
        return check_well_formed(bytes.data(), bytes.size(), check) ? kNotHeld : kFailed;
    // A file the library writes has about 14 attributes an element and 25 bytes an attribute.
    attributes_.reserve(bytes.size() / 24);
    elements_.reserve(bytes.size() / 300);
    check = WellFormedResult();
    Checker checker(bytes.data(), bytes.size(), check);
    checker.record_into(this, bytes);
    if (!checker.document()) {
        clear();
        return kFailed;
    }
    if (!checker.recording())
        return kNotHeld;
    return finish_recording(bytes);
}

void CompactTree::restore(std::string& bytes)
{
    // Each value's closing quote became its NUL; its opening quote is the byte before it.
    for (const Attribute& a : attributes_) {
        char* value = &bytes[a.value];
        value[std::strlen(value)] = value[-1];
    }
    // The parser's tree comes next: the room kept for this one goes first.
    clear();
    std::vector<Element>().swap(elements_);
    std::vector<Attribute>().swap(attributes_);
}

CompactTree::Outcome CompactTree::finish_recording(std::string& bytes)
{
    if (elements_.empty())
        return kFailed;
    for (const std::uint32_t a : to_decode_) {
        Byte* value = reinterpret_cast<Byte*>(&bytes[attributes_[a].value]);
        decode_value(value, value + std::strlen(reinterpret_cast<const char*>(value)));
    }
    to_decode_.clear();
    to_decode_.shrink_to_fit();
    elements_.push_back(Element{kNone, static_cast<std::uint32_t>(attributes_.size()), kNone, kNone});
    text_.swap(bytes);
    bytes.clear();
    return kBuilt;
}

// ---------------------------------------------------------------------------------------------
// Building a tree element by element

namespace {

std::uint32_t hash_name(const char* name)
{
    std::uint32_t h = 2166136261u;
    for (; *name != '\0'; ++name)
        h = (h ^ static_cast<Byte>(*name)) * 16777619u;
    return h;
}

} // namespace

CompactBuilder::CompactBuilder() : tree_(new CompactTree) {}

CompactBuilder::~CompactBuilder() = default;

void CompactBuilder::reserve(std::size_t elements, std::size_t attributes, std::size_t value_bytes)
{
    if (!tree_)
        return;
    tree_->elements_.reserve(elements + 1);
    tree_->attributes_.reserve(attributes);
    // The values with their NULs.
    tree_->text_.reserve(std::min(value_bytes + attributes + 4096, kMaxText));
}

void CompactBuilder::open(const char* name)
{
    if (!tree_)
        return;
    std::vector<CompactTree::Element>& elements = tree_->elements_;
    if (skipped_ > 0 || (open_ == CompactTree::kNone && !elements.empty())) {
        ++skipped_;
        return;
    }
    if (elements.size() >= kMaxText) {
        held_ = false;
        return;
    }
    const std::size_t length = std::strlen(name);
    ascii_ = ascii_ && is_ascii(name, length);
    const std::uint32_t index = static_cast<std::uint32_t>(elements.size());
    elements.push_back(CompactTree::Element{tree_->intern(name, length),
                                            static_cast<std::uint32_t>(tree_->attributes_.size()),
                                            CompactTree::kNone, open_});
    open_ = index;
}

std::uint32_t CompactBuilder::name(const char* name)
{
    if (!tree_)
        return 0;
    if ((name_count_ + 1) * 2 > name_slots_.size()) {
        std::vector<std::uint32_t> old(name_slots_.empty() ? 64 : name_slots_.size() * 2, CompactTree::kNone);
        old.swap(name_slots_);
        const std::size_t mask = name_slots_.size() - 1;
        for (const std::uint32_t index : old) {
            if (index == CompactTree::kNone)
                continue;
            std::size_t i = hash_name(tree_->name_texts_[index]) & mask;
            while (name_slots_[i] != CompactTree::kNone)
                i = (i + 1) & mask;
            name_slots_[i] = index;
        }
    }
    const std::size_t mask = name_slots_.size() - 1;
    std::size_t i = hash_name(name) & mask;
    for (; name_slots_[i] != CompactTree::kNone; i = (i + 1) & mask)
        if (std::strcmp(tree_->name_texts_[name_slots_[i]], name) == 0)
            return name_slots_[i];
    // A namespace declaration changes how elements are found by name, which the tree doesn't do.
    if (std::strncmp(name, "xmlns", 5) == 0)
        held_ = false;
    const std::size_t length = std::strlen(name);
    ascii_ = ascii_ && is_ascii(name, length);
    const std::uint32_t index = tree_->intern(name, length);
    name_slots_[i] = index;
    ++name_count_;
    return index;
}

bool CompactBuilder::may_add()
{
    if (!tree_ || skipped_ > 0 || open_ == CompactTree::kNone)
        return false;
    if (open_ + 1 != tree_->elements_.size() || tree_->attributes_.size() >= kMaxText)
        held_ = false;
    return held_;
}

void CompactBuilder::attribute(std::uint32_t name, const char* value)
{
    if (!may_add())
        return;
    std::vector<CompactTree::Attribute>& attributes = tree_->attributes_;
    const std::uint32_t value_offset = add_text(value, std::strlen(value));
    for (std::size_t a = tree_->elements_[open_].first_attribute; a < attributes.size(); ++a) {
        if (attributes[a].name == name) {
            attributes[a].value = value_offset;
            return;
        }
    }
    attributes.push_back(CompactTree::Attribute{name, value_offset});
}

void CompactBuilder::append_attribute(std::uint32_t name, const char* value, std::size_t value_size)
{
    if (!may_add())
        return;
    const std::uint32_t value_offset = add_text(value, value_size);
    tree_->attributes_.push_back(CompactTree::Attribute{name, value_offset});
}

std::uint32_t CompactBuilder::add_text(const char* text, std::size_t size)
{
    std::string& all = tree_->text_;
    if (size >= kMaxText - all.size()) {
        held_ = false;
        return 0;
    }
    const std::uint32_t offset = static_cast<std::uint32_t>(all.size());
    all.append(text, size);
    all.push_back('\0');
    ascii_ = ascii_ && is_ascii(text, size);
    return offset;
}

void CompactBuilder::close()
{
    if (!tree_)
        return;
    if (skipped_ > 0) {
        --skipped_;
        return;
    }
    if (open_ == CompactTree::kNone)
        return;
    std::vector<CompactTree::Element>& elements = tree_->elements_;
    elements[open_].end = static_cast<std::uint32_t>(elements.size());
    open_ = elements[open_].parent;
}

std::unique_ptr<CompactTree> CompactBuilder::finish()
{
    skipped_ = 0;
    while (tree_ && open_ != CompactTree::kNone)
        close();
    std::unique_ptr<CompactTree> tree = std::move(tree_);
    if (!tree || !held_ || tree->elements_.empty())
        return nullptr;
    tree->elements_.push_back(CompactTree::Element{CompactTree::kNone,
                                                   static_cast<std::uint32_t>(tree->attributes_.size()),
                                                   CompactTree::kNone, CompactTree::kNone});
    return tree;
}

} // namespace oxml
