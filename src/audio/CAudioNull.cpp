#include "audio/CAudioNull.h"

#include "support/ConfigAccess.h"

void CAudioNull::SaveFormat(const std::string& File, const std::string& Section) {
  // An empty entry list (the form of an absent section) removes the section, so no
  // stale keys of an earlier format stay behind.
  ConfigAccess::WriteProfileSection(Section, "", File);
}

void CAudioNull::LoadFormat(const std::string& File, const std::string& Section) {}

std::shared_ptr<IAudioFormat> CAudioNull::IAudioFormat_Copy() { return std::make_shared<CAudioNull>(); }

bool CAudioNull::IsSameFormat(IAudioFormat* oFormat) {
  return oFormat != nullptr && oFormat->FormatType() == FormatNone;
}

std::shared_ptr<CommonAudioFormat> CAudioNull::CommonFormat() {
  auto o = std::make_shared<CommonAudioFormat>();
  o->SetFormatType(FormatCommonNone);
  o->SetBitRate(0);
  o->SetBitsPerSample(0);
  o->SetChannels(0);
  o->SetSampleRate(0);
  o->SetFormatTag(0);
  o->SetProfileNum(0);
  o->SetProfileFile("");
  return o;
}
