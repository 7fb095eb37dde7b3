#include "zxml/chunked_deflate.h"

// zlib failures stop the program through the C library's assertion routine
// in every build type; it is declared only while assertions are enabled.
#undef NDEBUG
#include <assert.h>
#include <zlib.h>

#include <algorithm>
#include <cstring>
#include <memory>

namespace zxml_internal {
namespace {

constexpr unsigned long kChunk = 16384;
// zlib counts output room in an unsigned int.
constexpr unsigned long kMaxOutputStep = 1ul << 30;

// Stops the program the way a failed assert() does, with the caller's file
// and function in the message.
[[noreturn]] void fail(const char* expression, const char* file, unsigned line,
                       const char* function) {
  __assert_fail(expression, file, line, function);
}

// A growable output area that zlib writes into directly. It starts at
// zlib's bound for the input, which the stream never exceeds, but it still
// grows rather than let zlib write past its end. `spare` bytes stay free
// after the data for the caller's framing.
class Output {
 public:
  Output(unsigned long capacity, unsigned long spare)
      : data_(new unsigned char[capacity + spare]), capacity_(capacity), spare_(spare) {}
  // Room for up to `want` more bytes: where they go and how many fit.
  unsigned char* room(unsigned long want, unsigned long* fits) {
    if (capacity_ == size_) {
      const unsigned long grown = capacity_ * 2 + want;
      std::unique_ptr<unsigned char[]> bigger(new unsigned char[grown + spare_]);
      if (size_ != 0) std::memcpy(bigger.get(), data_.get(), size_);
      data_ = std::move(bigger);
      capacity_ = grown;
    }
    *fits = capacity_ - size_ < want ? capacity_ - size_ : want;
    return data_.get() + size_;
  }
  void commit(unsigned long count) { size_ += count; }
  unsigned long size() const { return size_; }
  unsigned char* release() { return data_.release(); }

 private:
  std::unique_ptr<unsigned char[]> data_;
  unsigned long capacity_;
  unsigned long spare_;
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
  Output out(deflateBound(&strm, length), spare);

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
      unsigned long fits = 0;
      // zlib may write all the room there is: how much output it is given
      // at a time does not change the bytes it writes.
      strm.next_out = out.room(kMaxOutputStep, &fits);
      strm.avail_out = static_cast<uInt>(fits);
      ret = deflate(&strm, flush);
      if (ret == Z_STREAM_ERROR) fail("ret != (-2)", assert_file, __LINE__, assert_function);
      out.commit(fits - strm.avail_out);
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

namespace {
// Text gathered before it is fed to zlib, and the first output room.
constexpr size_t kStreamBatch = 256u << 10;
constexpr unsigned long kStreamStartOutput = 1ul << 20;
}  // namespace

struct DeflateStream::State {
  State(unsigned long spare, const char* file, const char* function)
      : out(kStreamStartOutput, spare), assert_file(file), assert_function(function) {}
  z_stream strm{};
  Output out;
  const char* assert_file;
  const char* assert_function;
  int ret = Z_OK;
};

DeflateStream::DeflateStream(unsigned long spare, const char* assert_file,
                             const char* assert_function)
    : state_(new State(spare, assert_file, assert_function)) {
  // As in chunked_deflate, a failed initialisation shows at the first call.
  deflateInit(&state_->strm, Z_BEST_COMPRESSION);
  pending_.resize(kStreamBatch);
}

DeflateStream::~DeflateStream() {
  deflateEnd(&state_->strm);
}

char* DeflateStream::reserve(size_t n) {
  if (used_ >= kStreamBatch) feed(false);
  if (pending_.size() - used_ < n) pending_.resize(used_ + std::max(n, kStreamBatch));
  return pending_.data() + used_;
}

void DeflateStream::commit(size_t used) {
  used_ += used;
}

void DeflateStream::append(const char* text, size_t n) {
  if (n != 0) std::memcpy(reserve(n), text, n);
  commit(n);
}

void DeflateStream::feed(bool last) {
  State& s = *state_;
  s.strm.next_in = reinterpret_cast<unsigned char*>(pending_.data());
  s.strm.avail_in = static_cast<uInt>(used_);
  do {
    unsigned long fits = 0;
    s.strm.next_out = s.out.room(kStreamStartOutput, &fits);
    s.strm.avail_out = static_cast<uInt>(fits);
    s.ret = deflate(&s.strm, last ? Z_FINISH : Z_NO_FLUSH);
    if (s.ret == Z_STREAM_ERROR) fail("ret != (-2)", s.assert_file, __LINE__, s.assert_function);
    s.out.commit(fits - s.strm.avail_out);
  } while (s.strm.avail_out == 0);
  if (s.strm.avail_in != 0) fail("strm.avail_in == 0", s.assert_file, __LINE__, s.assert_function);
  used_ = 0;
}

unsigned char* DeflateStream::finish(unsigned long& length) {
  feed(true);
  if (state_->ret != Z_STREAM_END) {
    fail("ret == 1", state_->assert_file, __LINE__, state_->assert_function);
  }
  length = state_->out.size();
  return state_->out.release();
}

}  // namespace zxml_internal
