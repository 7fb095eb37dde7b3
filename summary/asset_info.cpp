// Placeholder until this collector is written.
#include "app/scanner.h"

zXML* CScaner::collect_asset_info(const char*, const char*, const char*, const char*, const char*, const char*, int& out, zXML*) {
  out = 0;
  return new zXML(doc_flag, "AssetInfo");
}
