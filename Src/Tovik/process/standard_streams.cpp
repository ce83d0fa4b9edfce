#include "Tovik/process/standard_streams.h"

#include <cstdio>

#include "Tovik/notices/notices.h"
#include "base/lossy_stream.h"
#include "base/standard_descriptors.h"

void ReadyStandardStreams() {
  base::GuardStandardDescriptors();
  std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
  RenewStandardStreams();
}

void RenewStandardStreams() {
  base::MakeStandardStreamsLossy();
  notices::LookForJournal();
}
