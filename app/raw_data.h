// The debug run's raw-output text.
#ifndef QUILLSCAN_APP_RAW_DATA_H_
#define QUILLSCAN_APP_RAW_DATA_H_

class CScaner;

// Gathers every raw-output section; returns a new[] buffer the caller frees.
char* collect_raw_data(CScaner* scanner, unsigned long* out_length, bool silent, int esx_major);

#endif  // QUILLSCAN_APP_RAW_DATA_H_
