// The inventory tree: typed values, annotations, attributes and elements,
// plus the two string helpers every collector uses (format_alloc,
// text_between). Single-threaded, no locking; lookups are linear scans in
// insertion order, which is also output order.
#ifndef QUILLSCAN_ZXML_TAG_H_
#define QUILLSCAN_ZXML_TAG_H_

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// A tagged value: none, boolean, 64-bit integer, double or text. Text is
// normalised when the value is built (see normalise_text).
class zvalue {
 public:
  enum Kind : int32_t { kNone = 0, kBool = 1, kInt = 2, kReal = 3, kText = 4 };

  zvalue() = default;
  explicit zvalue(bool b);
  // Any integer type other than bool becomes a 64-bit integer value.
  template <typename T,
            typename std::enable_if<std::is_integral<T>::value && !std::is_same<T, bool>::value,
                                    int>::type = 0>
  explicit zvalue(T v) : kind_(kInt), int_(static_cast<int64_t>(v)) {}
  explicit zvalue(double d);
  explicit zvalue(const std::string& text);
  explicit zvalue(const char* text);
  zvalue(const zvalue& other) = default;
  zvalue& operator=(const zvalue& other);
  ~zvalue() = default;

  void reset();
  Kind kind() const { return kind_; }
  bool as_bool() const { return bool_; }
  int64_t as_int() const { return int_; }
  double as_real() const { return real_; }
  // The stored text; empty for non-text values.
  const std::string& as_text() const { return text_; }

  // Printed form: "" / "true" / "false" / "%lld" / "%.2lf" / the text.
  size_t printed_length() const;
  // Writes the printed form at buf (no NUL) and returns its length.
  size_t print(char* buf) const;
  std::string printed() const;
  // Debug print of the printed form to standard error.
  void print_stderr() const;

 private:
  Kind kind_ = kNone;
  bool bool_ = false;
  int64_t int_ = 0;
  double real_ = 0.0;
  std::string text_;
};

// The three normalisation steps applied to every text value: line ends (LF
// becomes CR, the byte after a lone CR is dropped), space trimming, and
// Latin-1 to UTF-8 repair.
std::string normalise_text(const std::string& text);

// Ordered (key, text) annotations; duplicates allowed.
class zmeta {
 public:
  using Pair = std::pair<std::string, std::string>;
  void add(const std::string& key, const std::string& text);
  void append_all(const zmeta& other);
  size_t count() const { return items_.size(); }
  const Pair* item(size_t i) const { return i < items_.size() ? &items_[i] : nullptr; }
  // Text of the first pair with exactly this key, or null.
  const std::string* find(const std::string& key) const;
  void clear() { items_.clear(); }

 private:
  std::vector<Pair> items_;
};

class zattr {
 public:
  zattr(const std::string& name, const zvalue& value, const char* meta_key = nullptr,
        const char* meta_text = nullptr);
  void add_meta(const std::string& key, const std::string& text) { meta.add(key, text); }

  zmeta meta;
  zvalue value;
  std::string name;
};

class ztag {
 public:
  enum Kind : int32_t { kRoot = 0, kLeaf = 1, kParent = 2 };

  explicit ztag(const std::string& name);
  // A node of the given kind with an empty name owning one leaf child named
  // top_name (the document root).
  ztag(int kind, const std::string& top_name);
  virtual ~ztag() = default;
  ztag(const ztag&) = delete;
  ztag& operator=(const ztag&) = delete;

  ztag* find_child(const std::string& name) const;
  // Get-or-append a child by name.
  ztag* child(const std::string& name);
  // Get-or-append, then give the child a copy of value.
  ztag* child(const std::string& name, const zvalue& value);
  ztag* child_at(size_t i) const;
  zattr* find_attr(const std::string& name) const;
  // Set-or-append: an existing attribute keeps its place and annotations.
  zattr* set_attr(const std::string& name, const zvalue& value, const char* meta_key = nullptr,
                  const char* meta_text = nullptr);
  // Smallest n >= 1 such that prefix+n is unused among children or attributes.
  int next_index(const char* prefix, bool among_children) const;
  void add_meta(const std::string& key, const std::string& text) { meta_.add(key, text); }
  void set_value(const zvalue& value);
  // Appends an owned child as it is (no name check).
  ztag* append_child(std::unique_ptr<ztag> child);
  // Reorders the children by `less`, keeping equal children in their order.
  void sort_children(bool (*less)(const ztag& a, const ztag& b));
  std::unique_ptr<ztag> deep_copy() const;

  int kind() const { return kind_; }
  const std::string& name() const { return name_; }
  const zvalue* value() const { return value_.get(); }
  const zmeta& meta() const { return meta_; }
  const std::vector<std::unique_ptr<ztag>>& children() const { return children_; }
  const std::vector<std::unique_ptr<zattr>>& attrs() const { return attrs_; }
  uint32_t copied_attrs() const { return copied_attrs_; }
  uint32_t copied_children() const { return copied_children_; }

  // Serialization (text form of the node).
  size_t text_length(bool skip_children) const;
  size_t write_text(char* buffer, size_t position, bool no_close, bool header_only) const;
  // zlib level 9 of length bytes; returns a new unsigned char[] (delete[]
  // it as such) and sets length to the compressed size.
  static void* data_deflate(const void* data, unsigned long& length);
  // The text form of this node compressed; caller frees with delete[].
  unsigned char* pack(unsigned long& length) const;

 private:
  int kind_;
  uint32_t copied_attrs_ = 0;
  uint32_t copied_children_ = 0;
  std::vector<std::unique_ptr<ztag>> children_;
  std::vector<std::unique_ptr<zattr>> attrs_;
  zmeta meta_;
  std::string name_;
  std::unique_ptr<zvalue> value_;
};

// printf into a new array of exactly the needed size; caller delete[]s it.
char* format_alloc(const char* format, ...) __attribute__((format(printf, 1, 2)));
// The same formatting returned as a string (for callers that keep strings).
std::string format_string(const char* format, ...) __attribute__((format(printf, 1, 2)));
// Number of characters the formatting would produce.
int measure_format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Text after `open` (searched from `from`) up to the next `close`, or to the
// end; empty when `open` is absent.
std::string text_between(const std::string& text, const std::string& open, const std::string& close,
                         size_t from = 0);

#endif  // QUILLSCAN_ZXML_TAG_H_
