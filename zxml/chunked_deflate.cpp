#include "zxml/chunked_deflate.h"

// zlib failures stop the program through the C library's assertion routine
// in every build type; it is declared only while assertions are enabled.
#undef NDEBUG
#include <assert.h>
#include <zlib.h>

#include <cstring>
#include <memory>

namespace zxml_internal {
namespace {

constexpr unsigned long kChunk = 16384;

// Stops the program the way a failed assert() does, with the caller's file
// and function in the message.
[[noreturn]] void fail(const char* expression, const char* file, unsigned line,
                       const char* function) {
  __assert_fail(expression, file, line, function);
}

// A growable output area. It starts at zlib's bound for the input, which the
// stream never exceeds, but it still grows rather than write past its end.
class Output {
 public:
  explicit Output(unsigned long capacity)
      : data_(new unsigned char[capacity]), capacity_(capacity) {}
  void append(const unsigned char* bytes, unsigned long count, unsigned long spare) {
    if (size_ + count + spare > capacity_) {
      unsigned long grown = capacity_ * 2;
      if (grown < size_ + count + spare) grown = size_ + count + spare;
      std::unique_ptr<unsigned char[]> bigger(new unsigned char[grown]);
      if (size_ != 0) std::memcpy(bigger.get(), data_.get(), size_);
      data_ = std::move(bigger);
      capacity_ = grown;
    }
    if (count != 0) std::memcpy(data_.get() + size_, bytes, count);
    size_ += count;
  }
  unsigned long size() const { return size_; }
  unsigned char* release() { return data_.release(); }

 private:
  std::unique_ptr<unsigned char[]> data_;
  unsigned long capacity_;
  unsigned long size_ = 0;
};

}  // namespace

unsigned char* chunked_deflate(const void* data, unsigned long& length, unsigned long spare,
                               const char* assert_file, const char* assert_function) {
  z_stream strm;
  std::memset(&strm, 0, sizeof strm);
  // A failed initialisation leaves the stream unusable; the first deflate
  // call then reports a stream error and the assertion below fires.
  deflateInit(&strm, Z_BEST_COMPRESSION);
  Output out(deflateBound(&strm, length) + spare);

  unsigned char chunk_out[kChunk];
  const unsigned char* in = static_cast<const unsigned char*>(data);
  unsigned long remaining = length;
  int ret = Z_OK;
  for (;;) {
    const bool last = remaining <= kChunk;
    const unsigned long take = last ? remaining : kChunk;
    strm.next_in = const_cast<unsigned char*>(in);
    strm.avail_in = static_cast<uInt>(take);
    const int flush = last ? Z_FINISH : Z_NO_FLUSH;
    do {
      strm.next_out = chunk_out;
      strm.avail_out = kChunk;
      ret = deflate(&strm, flush);
      if (ret == Z_STREAM_ERROR) fail("ret != (-2)", assert_file, __LINE__, assert_function);
      out.append(chunk_out, kChunk - strm.avail_out, spare);
    } while (strm.avail_out == 0);
    if (strm.avail_in != 0) fail("strm.avail_in == 0", assert_file, __LINE__, assert_function);
    if (last) break;
    in += take;
    remaining -= take;
  }
  if (ret != Z_STREAM_END) fail("ret == 1", assert_file, __LINE__, assert_function);
  deflateEnd(&strm);
  length = out.size();
  return out.release();
}

}  // namespace zxml_internal
