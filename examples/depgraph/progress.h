/// \file
/// A progress bar for reading a large file.
#ifndef DEPGRAPH_PROGRESS_H
#define DEPGRAPH_PROGRESS_H

#include <mcl/tavnomcl.h>

/// Erases the bar, if there is one, so that something else can be printed.
void EraseProgress();

/// Reads from an open file, and draws a progress bar on standard error if that is a terminal and the file is larger
/// than 10 MB.
class WatchedFile : public VELM_CProgressFile {
public:
    explicit WatchedFile(VELM_CFile* pOpenFile);
    /// Removes the bar.
    ~WatchedFile() override;
};

#endif
