#include "support/CNVErr.h"

#include "support/DebugMsg.h"

CNVErr::CNVErr() {
  DebugMsg("Start CNVErr::Initialise", 5, 1);
  DebugMsg("End CNVErr::Initialise", 5, 2);
}

CNVErr::~CNVErr() {
  DebugMsg("Start CNVErr::Terminate", 5, 1);
  DebugMsg("End CNVErr::Terminate", 5, 2);
}

void CNVErr::LoadInfo(int32_t lNumber, const std::string& sSource, const std::string& sDescription,
                      const std::string& sHelpFile, int32_t lHelpContext) {
  Number = lNumber;
  source = sSource;
  Description = sDescription;
  HelpFile = sHelpFile;
  HelpContext = lHelpContext;
}

void CNVErr::RaiseError() const { throw RaisedError(Number, source, Description); }

void CNVErr::LoadFromErr(const RaisedError& e) {
  Number = e.Number;
  source = e.Source;
  Description = e.Description;
  HelpFile.clear();
  HelpContext = 0;
}
