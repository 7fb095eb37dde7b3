// quillscan-inv export: the tables of many .inv files into one SQLite
// database (appended to, one transaction per file, a file already imported
// adds nothing) or into one NDJSON or CSV file per table (written afresh).
#include <sqlite3.h>

#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <map>
#include <set>

#include "tools/fleet.h"
#include "tools/inv_format.h"

namespace invtab {
namespace {

namespace fs = std::filesystem;

const char* sql_type(const Column& c) {
  return c.type() == Type::kInteger ? "INTEGER" : "TEXT";
}

// Receives the rows of one file after another. A file's rows go between
// begin() and end(); rollback() takes back those of the file in progress.
// The files that went through become permanent at save(): the writer says
// when one is due (after enough rows), and the export saves once more at
// the end.
class Writer : public RowSink {
 public:
  virtual bool open(const std::string& out, std::string* error) = 0;
  // Whether the scan is already in the output.
  virtual bool has_scan(const std::string& scan_id, bool* found, std::string* error) = 0;
  virtual bool begin(std::string* error) = 0;
  virtual bool end(std::string* error) = 0;
  virtual void rollback() = 0;
  virtual bool due() const = 0;
  virtual bool save(std::string* error) = 0;
  // Whether a failure has also undone the files ended since the last
  // save() (reported once).
  virtual bool take_lost() = 0;
  virtual bool close(std::string* error) = 0;
};

// Rows per transaction: a commit costs a few syncs and the rewrite of each
// table's last pages, more than the rows of a small file (measured with a
// thousand files: a commit per file made the export about a fifth slower).
// Each file is a savepoint inside the transaction instead.
constexpr uint64_t kRowsPerCommit = 250000;
// Rows per insert statement: one statement for several rows costs less
// than a statement per row (measured: a fifth less time in SQLite with 16).
constexpr size_t kRowsPerInsert = 16;

class SqliteWriter : public Writer {
 public:
  ~SqliteWriter() override {
    for (Insert& i : insert_) i.finalize();
    sqlite3_finalize(find_scan_);
    if (db_ != nullptr) sqlite3_close(db_);
  }

  bool open(const std::string& out, std::string* error) override {
    // One thread uses SQLite: no mutexes, and no memory statistics (kept
    // under a mutex). Set before SQLite starts; later calls change nothing.
    static const bool configured = [] {
      sqlite3_config(SQLITE_CONFIG_SINGLETHREAD);
      sqlite3_config(SQLITE_CONFIG_MEMSTATUS, 0);
      return true;
    }();
    (void)configured;
    if (sqlite3_open_v2(out.c_str(), &db_, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr) !=
        SQLITE_OK) {
      return fail(error);
    }
    sqlite3_busy_timeout(db_, 5000);
    // A rollback journal: rows are only appended, and pages added by a
    // transaction need no copy in it, so each page is written once (a
    // write-ahead log writes it twice and reads it back once). A crash
    // leaves the database as of the last commit. A new database gets 16 KB
    // pages: fewer page splits and overflow pages for long texts (from 4 to
    // 64 KB, the time differs little).
    std::string sql =
        "PRAGMA page_size=16384; PRAGMA journal_mode=DELETE; PRAGMA synchronous=FULL; BEGIN;";
    for (const Table& t : tables()) {
      sql += "CREATE TABLE IF NOT EXISTS " + t.name + " (";
      for (size_t i = 0; i < t.columns.size(); ++i) {
        const Column& c = t.columns[i];
        sql += (i ? ", " : "") + c.name + " " + sql_type(c);
        if (c.name == "scan_id" || c.name == "position") sql += " NOT NULL";
      }
      // Only scans has a key (the scan id, which makes a second import of
      // a file add nothing). The other tables are plain rowid tables that
      // rows are appended to, in export order: a key or an index on them
      // would cost more than the rest of the export together.
      sql += t.name == "scans" ? ", PRIMARY KEY (scan_id));" : ");";
    }
    sql +=
        "CREATE INDEX IF NOT EXISTS scans_by_host ON scans (host_key, scan_time);"
        // The newest scan of each host (ties broken by scan id), for
        // fleet-wide queries that should not count history twice.
        "CREATE VIEW IF NOT EXISTS latest_scans AS SELECT * FROM scans s WHERE scan_id = "
        "(SELECT t.scan_id FROM scans t WHERE t.host_key = s.host_key "
        "ORDER BY t.scan_time DESC, t.scan_id DESC LIMIT 1);"
        "COMMIT;";
    if (!exec(sql, error)) return false;
    for (const Table& t : tables()) {
      insert_.emplace_back();
      Insert& in = insert_.back();
      in.columns = t.columns.size();
      if (!prepare(t, 1, &in.one, error) || !prepare(t, kRowsPerInsert, &in.many, error)) {
        return false;
      }
      in.pending.assign(kRowsPerInsert, Row(t.columns.size()));
    }
    return sqlite3_prepare_v2(db_, "SELECT 1 FROM scans WHERE scan_id = ?", -1, &find_scan_,
                              nullptr) == SQLITE_OK ||
           fail(error);
  }

  bool has_scan(const std::string& id, bool* found, std::string* error) override {
    sqlite3_reset(find_scan_);
    sqlite3_bind_text(find_scan_, 1, id.data(), static_cast<int>(id.size()), SQLITE_TRANSIENT);
    const int rc = sqlite3_step(find_scan_);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE) return fail(error);
    *found = rc == SQLITE_ROW;
    sqlite3_reset(find_scan_);
    return true;
  }

  bool begin(std::string* error) override {
    if (!in_transaction_) {
      if (!exec("BEGIN IMMEDIATE", error)) return false;
      in_transaction_ = true;
    }
    return exec("SAVEPOINT scan", error);
  }
  bool end(std::string* error) override {
    for (size_t t = 0; t < insert_.size(); ++t) {
      Insert& in = insert_[t];
      for (size_t i = 0; i < in.count; ++i) {
        if (!step(tables()[t], &in.one, in.pending[i], 0, 1, error)) return false;
      }
      in.count = 0;
    }
    return exec("RELEASE scan", error);
  }

  void rollback() override {
    for (Insert& in : insert_) in.count = 0;
    if (!in_transaction_) return;
    if (sqlite3_get_autocommit(db_) == 0 && sqlite3_exec(db_, "ROLLBACK TO scan; RELEASE scan",
                                                         nullptr, nullptr, nullptr) == SQLITE_OK) {
      return;
    }
    // SQLite has ended the whole transaction itself (as it may after an
    // I/O error or a full disk), or the file could not be undone alone.
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    in_transaction_ = false;
    rows_ = 0;
    lost_ = true;
  }

  bool due() const override { return rows_ >= kRowsPerCommit; }

  bool save(std::string* error) override {
    if (!in_transaction_) return true;
    in_transaction_ = false;
    rows_ = 0;
    if (exec("COMMIT", error)) return true;
    sqlite3_exec(db_, "ROLLBACK", nullptr, nullptr, nullptr);
    return false;
  }

  bool take_lost() override {
    const bool lost = lost_;
    lost_ = false;
    return lost;
  }

  bool close(std::string* error) override {
    for (Insert& i : insert_) i.finalize();
    insert_.clear();
    sqlite3_finalize(find_scan_);
    find_scan_ = nullptr;
    const int rc = sqlite3_close(db_);
    db_ = nullptr;
    if (rc != SQLITE_OK) *error = "cannot close the database";
    return rc == SQLITE_OK;
  }

  bool row(const Table& t, Row& r, std::string* error) override {
    Insert& in = insert_[static_cast<size_t>(&t - tables().data())];
    // The row waits for the statement's other rows; its texts are taken
    // rather than copied.
    Row& wait = in.pending[in.count++];
    for (size_t i = 0; i < r.size(); ++i) {
      wait[i].kind = r[i].kind;
      wait[i].i = r[i].i;
      if (r[i].kind == Value::kText) wait[i].s.swap(r[i].s);
    }
    ++rows_;
    if (in.count < kRowsPerInsert) return true;
    in.count = 0;
    for (size_t k = 0; k < kRowsPerInsert; ++k) {
      if (!bind(&in.many, in.pending[k], k * in.columns)) return step_error(t, error);
    }
    return step(t, &in.many, {}, 0, 0, error);
  }

 private:
  // An insert statement and what is bound to it. Bindings outlast a reset:
  // a NULL already bound, and a scan id (bound as a copy) equal to the
  // row's, are not bound again.
  struct Statement {
    sqlite3_stmt* stmt = nullptr;
    std::vector<char> null;            // per parameter: NULL is bound
    std::vector<std::string> scan_id;  // per row of the statement: its scan id
  };
  // A table's statements for one row and for kRowsPerInsert rows, and the
  // rows waiting for the latter.
  struct Insert {
    size_t columns = 0;
    Statement one, many;
    std::vector<Row> pending;
    size_t count = 0;
    void finalize() {
      sqlite3_finalize(one.stmt);
      sqlite3_finalize(many.stmt);
      one.stmt = many.stmt = nullptr;
    }
  };

  bool prepare(const Table& t, size_t rows, Statement* s, std::string* error) {
    // OR FAIL: a failing row leaves the statement's earlier rows, so SQLite
    // keeps no statement journal to undo them (the file's savepoint does).
    std::string sql = "INSERT OR FAIL INTO " + t.name + " VALUES ";
    for (size_t r = 0; r < rows; ++r) {
      sql += r ? ",(" : "(";
      for (size_t i = 0; i < t.columns.size(); ++i) sql += i ? ",?" : "?";
      sql += ")";
    }
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &s->stmt, nullptr) != SQLITE_OK) {
      *error = t.name + ": " + sqlite3_errmsg(db_) + " (a database of another layout?)";
      return false;
    }
    s->null.assign(rows * t.columns.size(), 0);
    s->scan_id.assign(rows, std::string());
    return true;
  }

  // Binds a row to the parameters from base on. The row outlives the
  // step, so SQLite need not copy its texts.
  bool bind(Statement* s, const Row& r, size_t base) {
    for (size_t i = 0; i < r.size(); ++i) {
      const size_t p = base + i;
      const int k = static_cast<int>(p) + 1;
      const Value& v = r[i];
      int rc = SQLITE_OK;
      if (v.kind == Value::kNull) {
        if (!s->null[p]) rc = sqlite3_bind_null(s->stmt, k);
        s->null[p] = 1;
      } else if (v.kind == Value::kInt) {
        rc = sqlite3_bind_int64(s->stmt, k, v.i);
        s->null[p] = 0;
      } else if (i == 0) {
        std::string& bound = s->scan_id[base / r.size()];
        if (s->null[p] || v.s != bound) {
          bound = v.s;
          rc = sqlite3_bind_text(s->stmt, k, bound.data(), static_cast<int>(bound.size()),
                                 SQLITE_STATIC);
        }
        s->null[p] = 0;
      } else {
        rc = sqlite3_bind_text(s->stmt, k, v.s.data(), static_cast<int>(v.s.size()), SQLITE_STATIC);
        s->null[p] = 0;
      }
      if (rc != SQLITE_OK) return false;
    }
    return true;
  }

  // Binds row (when rows is 1) and runs the statement.
  bool step(const Table& t, Statement* s, const Row& r, size_t base, size_t rows,
            std::string* error) {
    if (rows == 1 && !bind(s, r, base)) return step_error(t, error);
    const int rc = sqlite3_step(s->stmt);
    sqlite3_reset(s->stmt);
    return rc == SQLITE_DONE || step_error(t, error);
  }

  bool step_error(const Table& t, std::string* error) {
    *error = t.name + ": " + sqlite3_errmsg(db_);
    return false;
  }

  bool fail(std::string* error) {
    *error = db_ != nullptr ? sqlite3_errmsg(db_) : "out of memory";
    return false;
  }
  bool exec(const std::string& sql, std::string* error) {
    char* msg = nullptr;
    if (sqlite3_exec(db_, sql.c_str(), nullptr, nullptr, &msg) == SQLITE_OK) return true;
    *error = msg != nullptr ? msg : "SQLite error";
    sqlite3_free(msg);
    return false;
  }

  sqlite3* db_ = nullptr;
  sqlite3_stmt* find_scan_ = nullptr;
  std::vector<Insert> insert_;  // per table, in table order
  bool in_transaction_ = false;
  bool lost_ = false;
  uint64_t rows_ = 0;  // rows written in the open transaction
};

void append_int(int64_t n, std::string* out) {
  char buf[24];
  out->append(buf, static_cast<size_t>(std::to_chars(buf, buf + sizeof buf, n).ptr - buf));
}

// Bytes that JSON text cannot hold as they are (controls, quote, backslash,
// DEL and everything from 0x80, which must be checked for UTF-8).
struct JsonPlain {
  bool plain[256];
  JsonPlain() {
    for (int c = 0; c < 256; ++c) plain[c] = c >= 0x20 && c < 0x7F && c != '"' && c != '\\';
  }
};
const JsonPlain kJsonPlain;

// Appends a value as JSON. Plain printable ASCII, by far the most common
// text, is copied as it is; anything else goes through the decoder's JSON
// string writer.
void append_json(const Value& v, std::string* out) {
  if (v.kind == Value::kInt) {
    append_int(v.i, out);
    return;
  }
  if (v.kind != Value::kText) {
    out->append("null");
    return;
  }
  const unsigned char* p = reinterpret_cast<const unsigned char*>(v.s.data());
  for (size_t i = 0, n = v.s.size(); i < n; ++i) {
    if (!kJsonPlain.plain[p[i]]) {
      out->append(invread::json_string(v.s));
      return;
    }
  }
  out->push_back('"');
  out->append(v.s);
  out->push_back('"');
}

// Appends a value as a CSV field (see csv_field).
void append_csv(const Value& v, std::string* out) {
  if (v.kind == Value::kNull) return;
  if (v.kind == Value::kInt) {
    append_int(v.i, out);
    return;
  }
  if (v.s.find_first_of(",\"\r\n") == std::string::npos) {
    out->append(v.s);
    return;
  }
  out->push_back('"');
  for (char c : v.s) {
    if (c == '"') out->push_back('"');
    out->push_back(c);
  }
  out->push_back('"');
}

// One file per table in a directory, written under temporary names and
// renamed into place when the export ends; a file's rows are buffered and
// written only when the whole file mapped.
class TextWriter : public Writer {
 public:
  explicit TextWriter(bool csv) : csv_(csv) {}
  ~TextWriter() override {
    for (auto& f : files_) {
      if (f.second.file != nullptr) {
        std::fclose(f.second.file);
        std::remove(f.second.temp.c_str());
      }
    }
  }

  bool open(const std::string& out, std::string* error) override {
    std::error_code ec;
    fs::create_directories(out, ec);
    if (ec || !fs::is_directory(out)) {
      *error = out + ": " + (ec ? ec.message() : "not a directory");
      return false;
    }
    for (const Table& t : tables()) {
      Out& o = files_[&t];
      o.final_name = (fs::path(out) / (t.name + (csv_ ? ".csv" : ".ndjson"))).string();
      o.temp = o.final_name + ".tmp";
      o.file = std::fopen(o.temp.c_str(), "wb");
      if (o.file == nullptr) {
        *error = o.temp + ": " + std::strerror(errno);
        return false;
      }
      // The text before each value of a JSON row: {"scan_id": then
      // ,"position": and so on.
      for (size_t i = 0; i < t.columns.size(); ++i) {
        o.keys.push_back((i ? ",\"" : "{\"") + t.columns[i].name + "\":");
      }
      if (csv_) {
        std::string header;
        for (size_t i = 0; i < t.columns.size(); ++i) {
          header += (i ? "," : "") + t.columns[i].name;
        }
        o.pending = header + "\r\n";
      }
    }
    return flush(error);
  }

  bool has_scan(const std::string& id, bool* found, std::string*) override {
    *found = seen_.count(id) != 0;
    current_ = id;
    return true;
  }
  bool begin(std::string*) override { return true; }
  // A file's rows are written out when it ends; the scan then counts as
  // present.
  bool end(std::string* error) override {
    if (!flush(error)) return false;
    seen_.insert(current_);
    return true;
  }
  void rollback() override {
    for (auto& f : files_) f.second.pending.clear();
  }
  // Nothing waits: the files are complete when close() renames them.
  bool due() const override { return false; }
  bool save(std::string*) override { return true; }
  bool take_lost() override { return false; }

  bool close(std::string* error) override {
    for (auto& f : files_) {
      Out& o = f.second;
      const bool ok = std::fclose(o.file) == 0;
      o.file = nullptr;
      if (!ok || std::rename(o.temp.c_str(), o.final_name.c_str()) != 0) {
        *error = o.final_name + ": " + std::strerror(errno);
        std::remove(o.temp.c_str());
        return false;
      }
    }
    return true;
  }

  bool row(const Table& t, Row& r, std::string*) override {
    if (&t != last_table_) {
      last_table_ = &t;
      last_out_ = &files_[&t];
    }
    std::string& s = last_out_->pending;
    if (csv_) {
      for (size_t i = 0; i < r.size(); ++i) {
        if (i != 0) s.push_back(',');
        append_csv(r[i], &s);
      }
      s.append("\r\n", 2);
    } else {
      const std::vector<std::string>& keys = last_out_->keys;
      for (size_t i = 0; i < r.size(); ++i) {
        s.append(keys[i]);
        append_json(r[i], &s);
      }
      s.append("}\n", 2);
    }
    return true;
  }

 private:
  struct Out {
    std::string final_name, temp, pending;
    std::vector<std::string> keys;
    std::FILE* file = nullptr;
  };
  bool flush(std::string* error) {
    for (auto& f : files_) {
      Out& o = f.second;
      if (!o.pending.empty() &&
          std::fwrite(o.pending.data(), 1, o.pending.size(), o.file) != o.pending.size()) {
        *error = o.temp + ": " + std::strerror(errno);
        return false;
      }
      o.pending.clear();
    }
    return true;
  }

  bool csv_;
  std::map<const Table*, Out> files_;
  const Table* last_table_ = nullptr;
  Out* last_out_ = nullptr;
  std::set<std::string> seen_;
  std::string current_;  // the scan being written
};

int usage_error(const std::string& what) {
  std::fprintf(
      stderr, "usage: quillscan-inv export [--format sqlite|ndjson|csv] -o OUT FILE|DIR|-...: %s\n",
      what.c_str());
  return 2;
}

}  // namespace

// The decoder carries the version of the agent it was built with.
const char kVersion[] = "15.10.19.0";

std::string csv_field(const Value& v) {
  std::string out;
  append_csv(v, &out);
  return out;
}

int cmd_export(const std::vector<std::string>& args) {
  std::string format = "sqlite", out;
  std::vector<std::string> inputs;
  for (size_t i = 0; i < args.size(); ++i) {
    const std::string& a = args[i];
    if ((a == "--format" || a == "-f" || a == "-o" || a == "--output") && i + 1 < args.size()) {
      (a == "-o" || a == "--output" ? out : format) = args[++i];
    } else if (a.compare(0, 9, "--format=") == 0) {
      format = a.substr(9);
    } else if (a.compare(0, 9, "--output=") == 0) {
      out = a.substr(9);
    } else if (a.size() > 1 && a[0] == '-') {
      return usage_error("unknown option " + a);
    } else {
      inputs.push_back(a);
    }
  }
  if (format != "sqlite" && format != "ndjson" && format != "csv") {
    return usage_error("unknown format " + format);
  }
  if (out.empty()) return usage_error("no output (-o) given");
  if (inputs.empty()) return usage_error("no input file");

  std::string error;
  std::vector<std::string> files;
  if (!expand_inputs(inputs, &files, &error)) {
    std::fprintf(stderr, "quillscan-inv: %s\n", error.c_str());
    return 2;
  }
  std::unique_ptr<Writer> writer;
  if (format == "sqlite") {
    writer.reset(new SqliteWriter());
  } else {
    writer.reset(new TextWriter(format == "csv"));
  }
  if (!writer->open(out, &error)) {
    std::fprintf(stderr, "quillscan-inv: %s: %s\n", out.c_str(), error.c_str());
    return 2;
  }
  size_t exported = 0, present = 0, failed = 0;
  const auto report = [](const std::string& name, const std::string& what) {
    std::fflush(stdout);
    std::fprintf(stderr, "quillscan-inv: %s: %s\n", name.c_str(), what.c_str());
  };
  // Files written since the last save: exported once it succeeds, failed
  // when it does not.
  std::vector<std::string> unsaved;
  std::vector<std::string> texts;  // the documents of the file being exported
  const auto save = [&]() {
    std::string why;
    if (writer->save(&why)) {
      exported += unsaved.size();
    } else {
      for (const std::string& u : unsaved) report(u, "not saved: " + why);
      failed += unsaved.size();
    }
    unsaved.clear();
  };
  for (const std::string& f : files) {
    // Rows are written as the file is decoded; a damaged file is rolled
    // back and leaves no row behind.
    InputFile input;
    ScanFile file;
    bool found = false;
    bool ok = open_scan(f, &input, &file, &error) && writer->has_scan(file.scan_id, &found, &error);
    if (ok && found) {
      ++present;
      continue;
    }
    if (ok && (!writer->begin(&error) || !map_scan(input, file, writer.get(), &error, &texts) ||
               !writer->end(&error))) {
      writer->rollback();
      ok = false;
    }
    if (!ok) {
      report(f, error);
      ++failed;
      if (writer->take_lost()) {
        for (const std::string& u : unsaved) report(u, "not saved: " + error);
        failed += unsaved.size();
        unsaved.clear();
      }
      continue;
    }
    unsaved.push_back(f);
    if (writer->due()) save();
  }
  save();
  if (!writer->close(&error)) {
    std::fprintf(stderr, "quillscan-inv: %s\n", error.c_str());
    return 2;
  }
  std::printf("%s: %zu exported, %zu already present, %zu failed\n", out.c_str(), exported, present,
              failed);
  return failed == 0 ? 0 : 1;
}

}  // namespace invtab
