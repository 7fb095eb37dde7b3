// Serialization cost against zlib's own: builds a snapshot-like tree of
// about 50 MB of text, then times zXML::serialize (text written and
// compressed a batch at a time, then framed) and zlib level 9 alone on the
// same text, and prints the ratio of
// the medians of kRuns samples of each. The goal is that serialization adds
// at most 10% to zlib's time.
#include <zlib.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include "zxml/zXML.h"

namespace {

constexpr size_t kTargetText = 50u << 20;
constexpr int kRuns = 7;

// Processor time of this process: unlike wall time it does not grow when
// other programs share the machine.
double cpu_seconds() {
  struct timespec ts;
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &ts);
  return static_cast<double>(ts.tv_sec) + static_cast<double>(ts.tv_nsec) / 1e9;
}

// A new element; numbered siblings are appended directly, since looking
// each new name up among 100000 siblings would time the builder, not the
// serializer.
std::unique_ptr<ztag> fresh(const std::string& name) {
  return std::unique_ptr<ztag>(new ztag(name));
}

// Processes, software bundles, virtual machines with devices, and a few
// multi-line texts: the shapes a real snapshot has, repeated until the text
// form reaches the target size.
void build(zXML& doc, std::mt19937& rng) {
  const char* vendors[] = {"VMware", "Intel", "Broadcom", "QLogic", "Emulex", "Dell", "HPE"};
  const char* states[] = {"running", "sleeping", "stopped", "zombie"};
  ztag* top = doc.top();
  top->add_meta("kind", "esx");
  top->set_attr("timestamp", zvalue("20240611120000.000000+120"));
  ztag* procs = top->child("Processes");
  ztag* soft = top->child("Software");
  ztag* vms = top->child("Virtual-machines");
  auto r = [&rng]() { return static_cast<unsigned>(rng()); };
  size_t n = 0;
  size_t size = doc.root()->text_length(false);
  while (size < kTargetText) {
    for (int i = 0; i < 200; ++i, ++n) {
      ztag* p = procs->append_child(fresh(format_string("process:%zu", n + 1)));
      p->set_attr("pid", zvalue(static_cast<int64_t>(r() % 200000)));
      p->set_attr("name", zvalue(format_string("/bin/worker-%u --id=%u", r() % 97, r())));
      p->set_attr("state", zvalue(states[r() % 4]));
      p->set_attr("cpu", zvalue((r() % 10000) / 100.0), "units", "%");
      p->set_attr("memory", zvalue(static_cast<int64_t>(r() % 4000000)), "units", "KB");

      ztag* s = soft->append_child(fresh(format_string("package:%zu", n + 1)));
      s->set_attr("name", zvalue(format_string("%s-driver-%u", vendors[r() % 7], r() % 500)));
      s->set_attr("version", zvalue(format_string("%u.%u.%u-%u", r() % 10, r() % 50, r() % 100,
                                                  r() % 100000)));
      s->set_attr("vendor", zvalue(vendors[r() % 7]));
      s->set_attr("install-date",
                  zvalue(format_string("2024-%02u-%02u", r() % 12 + 1, r() % 28 + 1)));
      s->set_attr("accepted", zvalue(r() % 2 == 0));
      size += p->text_length(false) + s->text_length(false);

      if (i % 10 == 0) {
        ztag* vm = vms->append_child(fresh(format_string("vm:%zu", n / 10 + 1)));
        vm->add_meta("field-source", "");
        vm->set_attr("name", zvalue(format_string("guest-%08x", r())));
        vm->set_attr("config", zvalue(format_string(
                                   "displayName = \"guest\"\nmemsize = \"%u\"\nnumvcpus = \"%u\"\n",
                                   r() % 65536, r() % 16 + 1)));
        ztag* devices = vm->child("Devices");
        for (int d = 1; d <= 3; ++d) {
          ztag* disk = devices->child(format_string("disk:%d", d));
          const double gb = (r() % 100000) / 100.0;
          disk->set_attr(
              "size", zvalue(format_string("%.2f", gb)), "base-value",
              format_string("%llu", static_cast<unsigned long long>(gb * 1073741824.0)).c_str());
          disk->set_attr(
              "file", zvalue(format_string("[datastore1] guest-%u/disk-%d.vmdk", r() % 1000, d)));
        }
        size += vm->text_length(false);
      }
    }
  }
}

double median(std::vector<double> samples) {
  std::sort(samples.begin(), samples.end());
  return samples[samples.size() / 2];
}

}  // namespace

int main() {
  std::mt19937 rng(42);
  zXML doc(true, "Snapshot");
  double t0 = cpu_seconds();
  build(doc, rng);
  const size_t text_size = doc.root()->text_length(false);
  std::printf("tree built in %.2f s: %.1f MiB of text\n", cpu_seconds() - t0,
              text_size / 1048576.0);

  // The same text, written once, for zlib alone.
  std::unique_ptr<char[]> text(new char[text_size]);
  doc.root()->write_text(text.get(), 0, false, false);

  std::vector<double> serialize_times, zlib_times;
  unsigned long body_size = 0;
  uLongf zlib_size = 0;
  std::vector<unsigned char> out(compressBound(text_size));
  // The two sides take turns going first, so that neither always runs on
  // caches the other warmed.
  for (int run = 0; run < kRuns; ++run) {
    for (int side = 0; side < 2; ++side) {
      if ((side + run) % 2 == 0) {
        t0 = cpu_seconds();
        std::unique_ptr<unsigned char[]> body(doc.serialize(body_size, false, true));
        serialize_times.push_back(cpu_seconds() - t0);
      } else {
        t0 = cpu_seconds();
        zlib_size = out.size();
        if (compress2(out.data(), &zlib_size, reinterpret_cast<const Bytef*>(text.get()), text_size,
                      9) != Z_OK) {
          std::fprintf(stderr, "compress2 failed\n");
          return 1;
        }
        zlib_times.push_back(cpu_seconds() - t0);
      }
    }
  }
  const double serialize_s = median(serialize_times);
  const double zlib_s = median(zlib_times);
  const double ratio = serialize_s / zlib_s;
  std::printf("serialize + compress: %.3f s CPU, median of %d (%lu bytes body)\n", serialize_s,
              kRuns, body_size);
  std::printf("zlib level 9 alone:   %.3f s CPU, median of %d (%lu bytes)\n", zlib_s, kRuns,
              static_cast<unsigned long>(zlib_size));
  std::printf("ratio: %.3f (serialization adds %.1f%%; goal at most 10%%: %s)\n", ratio,
              (ratio - 1.0) * 100.0, ratio <= 1.10 ? "met" : "missed");
  return 0;
}
