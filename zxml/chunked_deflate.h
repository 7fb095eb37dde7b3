// The one compression routine behind ztag::data_deflate,
// zXML::data_deflate and InvFile::data_deflate. Each caller names itself so
// that a zlib failure stops the program with an assertion message naming
// that caller's source and function.
#ifndef QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_
#define QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_

namespace zxml_internal {

// Compresses length bytes of data with zlib level 9 (zlib wrapper), feeding
// the input in 16384-byte chunks (finish on the last, possibly empty, chunk).
// Returns a new unsigned char[] of at least length + spare bytes of room
// after the stream (callers append their framing there); length is set to
// the compressed size. assert_file/assert_function name the caller in the
// assertion messages.
unsigned char* chunked_deflate(const void* data, unsigned long& length, unsigned long spare,
                               const char* assert_file, const char* assert_function);

}  // namespace zxml_internal

#endif  // QUILLSCAN_ZXML_CHUNKED_DEFLATE_H_
