// Reordering of an element's children (used for the package list).
#include <algorithm>

#include "zxml/tag.h"

void ztag::sort_children(bool (*less)(const ztag& a, const ztag& b)) {
  std::stable_sort(children_.begin(), children_.end(),
                   [less](const std::unique_ptr<ztag>& a, const std::unique_ptr<ztag>& b) {
                     return less(*a, *b);
                   });
}
