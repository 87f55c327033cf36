// SPDX-License-Identifier: Apache-2.0
// LmString, lm_strncpy and LmDbgOutput of the recording framework.
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <string>

#include "LmFramework/LmDbgOutput.h"
#include "LmFramework/LmString.h"
#include "LmFramework/lm_strncpy.h"
#include "recording/RecorderState.h"

namespace {

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

__attribute__((format(printf, 1, 0))) std::string formatted(const char* format, va_list arguments) {
  char message[1024];
  std::vsnprintf(message, sizeof(message), format, arguments);
  return message;
}

void print(const Recorder::LogLine& line) {
  RecorderState& state = RecorderState::get();
  std::string event = line.standardError ? "DbgPrintStdErr " : "DbgPrint ";
  event += line.file + " " + line.function + " " + std::to_string(line.line) + " ";
  event += line.standardError ? line.message : std::to_string(line.tag) + " " + line.message;
  state.record(Recorder::LOG, event);
  const std::lock_guard<std::mutex> lock(state.guard);
  state.logLines.push_back(line);
}

}  // namespace

LmString::LmString(const char* text, int codePage) : mText(text) {
  RecorderState::get().record(Recorder::TEXT, "LmString " + quoted(mText) + " " + std::to_string(codePage));
}

LmString& LmString::operator+=(const LmString& other) { return *this += other.mText.c_str(); }

LmString& LmString::operator+=(const char* text) {
  RecorderState::get().record(Recorder::TEXT, "+= " + quoted(text));
  mText += text;
  return *this;
}

const char* LmString::ToCHAR(int codePage) const {
  RecorderState::get().record(Recorder::TEXT, "ToCHAR " + std::to_string(codePage) + " " + quoted(mText));
  return mText.c_str();
}

char* lm_strncpy(char* destination, const char* source, std::size_t bound) {
  const std::size_t length = strnlen(source, bound);
  RecorderState::get().record(Recorder::TEXT_COPY,
                              "lm_strncpy " + quoted(std::string(source, length)) + " " + std::to_string(bound));
  std::memcpy(destination, source, length);
  destination[length] = '\0';
  return destination;
}

void LmDbgOutput::DbgPrint(const char* file, const char* function, int line, int tag, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print({false, file, function, line, tag, format, formatted(format, arguments)});
  va_end(arguments);
}

void LmDbgOutput::DbgPrintStdErr(const char* file, const char* function, int line, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  print({true, file, function, line, 0, format, formatted(format, arguments)});
  va_end(arguments);
}

void LmDbgOutput::setSink(Sink /*sink*/, void* /*context*/) {}

void LmDbgOutput::useSyslog() {}
