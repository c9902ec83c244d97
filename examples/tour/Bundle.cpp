// Bundles the tour's output files into one zip archive built in
// memory, then reads the archive back to show what it holds.
#include "Demos.h"

#include <zrn/IO/MemZip.h>

#include <cstdlib>
#include <fstream>
#include <iostream>
#include <memory>

void BundleOutputs(std::string const& zipPath, std::vector<BundledFile> const& files) {
  zrn::CMemZip zip;
  for (BundledFile const& file : files)
    if (!zip.AddFile(file.entry.c_str(), file.path.c_str()))
      std::wcout << L"could not bundle " << file.path.c_str() << L'\n';
  if (!zip.FlushToFile(zipPath.c_str())) {
    std::wcout << L"could not write " << zipPath.c_str() << L'\n';
    return;
  }

  std::ifstream in(zipPath, std::ios::binary);
  const std::string archive((std::istreambuf_iterator<char>(in)), {});
  zrn::CMemZip reader(archive.data(), archive.size());
  std::wcout << L"bundled into " << zipPath.c_str() << L" (" << archive.size() << L" bytes):";
  for (BundledFile const& file : files) {
    unsigned long long size = 0;
    std::unique_ptr<char[]> bytes(reader.Extract(file.entry.c_str(), size));
    std::wcout << L' ' << file.entry.c_str() << L' ' << size << L" bytes;";
  }
  std::wcout << L'\n';
}
