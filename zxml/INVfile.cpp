#include "zxml/INVfile.h"

#include <cstdio>
#include <cstring>

#include "zxml/chunked_deflate.h"

InvFile::InvFile(bool doc_flag) : doc_flag_(doc_flag) {}

InvFile::~InvFile() {
  for (Record* r : records_) {
    if (!r->raw) {
      delete r->doc;
      delete[] r->data;
    } else if (owns_raw_) {
      delete[] r->data;
    }
    delete r;
  }
}

void InvFile::add_document(zXML* doc, int type, bool opt1, bool opt2) {
  Record* r = new Record();
  r->type = type;
  r->raw = false;
  r->opt1 = opt1;
  r->opt2 = opt2;
  r->doc = doc;
  unsigned long length = 0;
  r->data = doc->serialize(length, opt1, opt2);
  r->offset = 0;
  r->length = static_cast<uint32_t>(length);
  records_.push_back(r);
}

void InvFile::add_raw(void* data, unsigned long length) {
  Record* r = new Record();
  r->type = kCustomData;
  r->raw = true;
  r->data = static_cast<unsigned char*>(data);
  r->opt1 = true;
  r->opt2 = true;
  r->doc = nullptr;
  r->offset = 0;
  r->length = static_cast<uint32_t>(length);
  records_.push_back(r);
}

void* InvFile::data_deflate(const void* data, unsigned long& length) {
  return zxml_internal::chunked_deflate(
      data, length, 0, "zxml/INVfile",
      "void* InvFile::data_deflate(const void*, long unsigned int&)");
}

// The header text; also assigns every record's offset (bodies are stored
// back to back from the start of the file, in record order).
std::string InvFile::header_text() {
  int snapshots = 0;
  for (const Record* r : records_) {
    if (r->doc != nullptr && r->doc->top() != nullptr && r->doc->top()->name() == "Snapshot") {
      ++snapshots;
    }
  }
  std::string h = format_string("[H]\ncount=%lu\nsnapshotcount=%d\n",
                                static_cast<unsigned long>(records_.size()), snapshots);
  uint32_t offset = 0;
  for (size_t i = 0; i < records_.size(); ++i) {
    Record* r = records_[i];
    r->offset = offset;
    offset += r->length;
    const int index = static_cast<int>(i);
    const unsigned long off = r->offset;
    const unsigned long len = r->length;
    switch (r->type) {
      case kSnapshot: {
        std::string stamp;
        const ztag* top = r->doc != nullptr ? r->doc->top() : nullptr;
        const zattr* a = top != nullptr ? top->find_attr("timestamp") : nullptr;
        if (a != nullptr && a->value.kind() == zvalue::kText) stamp = a->value.as_text();
        h += format_string("[%d]\noffset=%lu\nlength=%lu\ntype=%s\n", index, off, len, "snapshot");
        h += "timestamp=" + stamp + "\nsnaptype=esx:1\n";
        break;
      }
      case kAssetInfo:
        h += format_string("[%d]\noffset=%lu\nlength=%lu\ntype=assetinfo\n", index, off, len);
        break;
      case kCustomData:
        h += format_string("[%d]\noffset=%lu\nlength=%lu\ntype=customdata\nID=rawdata\n", index,
                           off, len);
        break;
      default:
        break;
    }
  }
  return h;
}

std::string InvFile::build_image() {
  const std::string header = header_text();
  uint64_t bodies = 0;
  for (const Record* r : records_) bodies += r->length;

  std::string image;
  image.reserve(bodies + header.size() + 14);
  for (const Record* r : records_) {
    image.append(reinterpret_cast<const char*>(r->data), r->length);
  }
  image += header;

  unsigned char trailer[14];
  for (int i = 0; i < 8; ++i) {
    const unsigned char byte = static_cast<unsigned char>(bodies >> (8 * i));
    trailer[doc_flag_ ? i : 7 - i] = byte;
  }
  trailer[8] = 3;
  trailer[9] = write_flag_ ? 1 : 0;
  std::memcpy(trailer + 10, "INV!", 4);
  image.append(reinterpret_cast<const char*>(trailer), sizeof trailer);
  return image;
}

bool InvFile::write(const char* path, bool flag) {
  const std::string image = build_image(flag);
  std::FILE* f = std::fopen(path, "w");
  if (f == nullptr) return false;
  // Unlike a bare write-and-forget, every step is checked: a full disk or
  // an I/O error must not leave a truncated inventory behind.
  bool ok = std::fwrite(image.data(), 1, image.size(), f) == image.size();
  ok = std::fflush(f) == 0 && ok;
  ok = std::fclose(f) == 0 && ok;
  if (!ok) std::remove(path);
  return ok;
}

std::string format_timestamp(time_t t) {
  struct tm local;
  std::memset(&local, 0, sizeof local);
  if (localtime_r(&t, &local) == nullptr) return std::string();
  char zone[16];
  if (std::strftime(zone, sizeof zone, "%z", &local) == 0) zone[0] = '\0';
  return format_timestamp_parts(local, zone);
}

std::string format_timestamp_parts(const struct tm& local, const std::string& zone) {
  char stamp[64];
  if (std::strftime(stamp, sizeof stamp, "%Y%m%d%H%M%S.000000", &local) == 0) stamp[0] = '\0';
  // "%z" gives a sign and four digits ("+0300"); anything else (no zone
  // information) counts as UTC.
  char sign = '+';
  unsigned minutes = 0;
  if ((zone[0] == '+' || zone[0] == '-') && zone.size() == 5) {
    bool digits = true;
    for (int i = 1; i < 5; ++i) digits = digits && zone[i] >= '0' && zone[i] <= '9';
    if (digits) {
      sign = zone[0];
      minutes = static_cast<unsigned>((zone[1] - '0') * 10 + (zone[2] - '0')) * 60 +
                static_cast<unsigned>((zone[3] - '0') * 10 + (zone[4] - '0'));
    }
  }
  return format_string("%s%c%u", stamp, sign, minutes);
}
