// A project of parts under an assembly. Each part carries named properties;
// they are archived to a file (the scheme of the part class once, then the
// values by id) and read back into fresh parts.
#include "Demos.h"

#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/FileIOStream.h>
#include <zrn/Object/Project.h>
#include <zrn/Property/PropertyCollection.h>

#include <iostream>
#include <vector>

namespace {

constexpr auto kPartType = static_cast<zrn::eGBMDataType>(20001);

class Part : public zrn::IBaseEntity, public zrn::IBase {
public:
  zrn::eGBMDataType GetObjectType() override { return kPartType; }
  zrn::CPropertyCollection& Properties() { return m_properties; }

private:
  zrn::CPropertyCollection m_properties{this};
};

void PrintProperties(Part& part) {
  std::wstring product, name;
  zrn::CVariant value;
  std::wcout << L"  part " << part.GetObjectID() << L':';
  part.Properties().First();
  while (part.Properties().Next(product, name, value))
    std::wcout << L' ' << name << L'=' << value.toWString();
  std::wcout << L'\n';
}

std::vector<Part*> BuildTree(zrn::IBaseProject& project) {
  auto* assembly = new Part;
  project.AddChild(assembly);
  std::vector<Part*> parts;
  wchar_t const* const names[] = {L"bolt", L"nut", L"washer"};
  for (int i = 0; i < 3; ++i) {
    auto* part = new Part;
    assembly->AddChild(part); // numbered by the project as it joins the tree
    part->Properties().SetProperty(L"name", zrn::CVariant(names[i]));
    part->Properties().SetProperty(L"length", zrn::CVariant(10.0 * (i + 1)));
    parts.push_back(part);
  }
  std::wcout << L"project tree: assembly " << assembly->GetObjectID() << L" with " << parts.size()
             << L" parts\n";
  return parts;
}

} // namespace

void ArchiveProjectProperties(std::wstring const& path) {
  zrn::IBaseProject project;
  std::vector<Part*> const parts = BuildTree(project);
  {
    zrn::GFileIOStream file(true, path, false);
    zrn::GDbArchiveImpl ar(&file);
    for (Part* part : parts)
      part->Properties().Serialize(ar);
  }
  std::wcout << L"properties of " << parts.size() << L" parts archived to " << path << L'\n';

  zrn::GFileIOStream file(false, path, false);
  zrn::GDbArchiveImpl ar(&file);
  for (Part* original : parts) {
    Part copy;
    copy.SetObjectID(original->GetObjectID());
    copy.Properties().Serialize(ar);
    PrintProperties(copy);
  }
}
