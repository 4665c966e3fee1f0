// CFile: the file base that file-minded code is written against.
#include <stdexcept>

#include "aostore/file_adapter.h"

CFile::~CFile() = default;

void CFile::SetFilePath(const char* path) {
  if (path == nullptr) throw std::invalid_argument("CFile::SetFilePath: null path");
  m_filePath = path;
}

std::string CFile::GetFilePath() const { return m_filePath; }

uint32_t CFile::GetBufferPtr(uint32_t command, uint32_t count, void** start, void** max) {
  (void)command;
  (void)count;
  if (start != nullptr) *start = nullptr;
  if (max != nullptr) *max = nullptr;
  return 0;
}
