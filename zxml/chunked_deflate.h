// The one compression routine behind ztag::data_deflate,
// zXML::data_deflate and InvFile::data_deflate. Each caller names itself so
// that a zlib failure stops the program with an assertion message naming
// that caller's source and function.
#ifndef QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_
#define QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_

#include <cstddef>
#include <memory>
#include <vector>

namespace zxml_internal {

// Compresses length bytes of data with zlib level 9 (zlib wrapper), feeding
// the input in 16384-byte chunks (finish on the last, possibly empty, chunk).
// Returns a new unsigned char[] of at least length + spare bytes of room
// after the stream (callers append their framing there); length is set to
// the compressed size. assert_file/assert_function name the caller in the
// assertion messages.
unsigned char* chunked_deflate(const void* data, unsigned long& length, unsigned long spare,
                               const char* assert_file, const char* assert_function);

// The same compression for a text handed over piece by piece, so that a
// large document is never held whole as text: the pieces gather in a small
// buffer that is fed to zlib as it fills. zlib's output does not depend on
// how its input is split (without flushes), so the bytes are those
// chunked_deflate writes for the whole text.
class DeflateStream {
 public:
  DeflateStream(unsigned long spare, const char* assert_file, const char* assert_function);
  ~DeflateStream();
  DeflateStream(const DeflateStream&) = delete;
  DeflateStream& operator=(const DeflateStream&) = delete;

  // Room for n more bytes of text, valid until the next call; commit()
  // then keeps the first `used` of them.
  char* reserve(size_t n);
  void commit(size_t used);
  void append(const char* text, size_t n);
  // Ends the stream: a new unsigned char[] with `spare` bytes of room after
  // the compressed data, whose size goes to length.
  unsigned char* finish(unsigned long& length);

 private:
  struct State;
  void feed(bool last);
  std::unique_ptr<State> state_;
  std::vector<char> pending_;
  size_t used_ = 0;
};

}  // namespace zxml_internal

#endif  // QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_
