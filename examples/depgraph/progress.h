/// \file
/// How far the reading of a long file is, on a terminal.
#ifndef DEPGRAPH_PROGRESS_H
#define DEPGRAPH_PROGRESS_H

#include <mcl/tavnomcl.h>

/// Removes the bar, if there is one, to make room for something else.
void EraseProgress();

/// An open file, and while it is read a bar on standard error, if that is a terminal and the file above 10 MB.
class WatchedFile : public VELM_CProgressFile {
public:
    explicit WatchedFile(VELM_CFile* pOpenFile);
    /// Removes the bar.
    ~WatchedFile() override;
};

#endif
