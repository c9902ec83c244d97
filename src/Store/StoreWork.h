// The two long jobs of the store facade: saving a tree and loading one.
#ifndef ZRN_SRC_STORE_STOREWORK_H
#define ZRN_SRC_STORE_STOREWORK_H

#include <zrn/Store/EntityStoreDevice.h>
#include <zrn/Store/StoreFacade.h>

#include "Store/EntityBlob.h"

#include <string>
#include <typeinfo>
#include <vector>

namespace zrn {

class IBaseEntity;
class IBaseProject;

/// One save: walks the tree once, writes what changed inside the device's
/// transaction, commits, and only then updates the entities' flags.
class CStoreSave {
public:
  CStoreSave(GStoreFacade& facade, GEntityStoreDevice& device)
      : m_facade(facade), m_device(device) {}

  /// True when everything was written and committed.
  bool Run(IBaseProject& project);
  /// Rows written, order updates and deletions.
  std::size_t RowCount() const { return m_nRows; }

private:
  // An entity waiting to be written, with what its parent decided for it.
  struct SPending {
    IBaseEntity* entity;
    long long parentId;
    long long order;
    bool rewriteOrder;
  };

  bool WriteTree(IBaseProject& project);
  void PushChildren(IBaseEntity& parent);
  bool WriteEntity(IBaseEntity& entity, long long parentId, long long order, bool rewriteOrder);
  bool WriteFull(IBaseEntity& entity, long long parentId, long long order);
  bool Archive(IBaseEntity& entity, char const*& data, unsigned& size);
  int TypeOf(IBaseEntity& entity);
  bool Delete();
  bool WriteProject(IBaseProject& project);
  void AfterCommit(IBaseProject& project);
  bool Fail(std::string text);
  std::size_t CountEntities(IBaseProject& project) const;

  GStoreFacade& m_facade;
  GEntityStoreDevice& m_device;
  detail::CBlobWriter m_writer;
  std::string m_swapBytes;
  std::vector<SPending> m_stack;
  std::vector<IBaseEntity*> m_written;
  std::vector<long long> m_becameOrdered;
  std::vector<long long> m_becameNatural;
  std::type_info const* m_lastType = nullptr;
  int m_nLastTypeId = -1;
  std::size_t m_nRows = 0;
  std::size_t m_nVisited = 0;
  std::size_t m_nTotal = 0;
  // The store's rows are not this tree's: clear them and write every entity.
  bool m_bWhole = false;
};

/// One load: reads every row, checks that they form one tree under the
/// project, builds it bottom-up and attaches the device.
class CStoreLoad {
public:
  CStoreLoad(GStoreFacade& facade, GEntityStoreDevice& device)
      : m_facade(facade), m_device(device) {}
  ~CStoreLoad();

  /// The loaded project (owning the device), or null with the device's
  /// LastError() saying why.
  IBaseProject* Run(long long projectId);

private:
  struct Row {
    long long id;
    long long parentId;
    long long order;
    IBaseEntity* entity;
  };

  bool ReadRows();
  bool AddRow(SEntityRow const& row);
  bool Link(long long projectId);
  bool CheckConnected();
  void SortExplicitOrders();
  void Attach();
  void RestoreCounter(IBaseProject& project);
  std::size_t Find(long long id) const;
  bool Fail(std::string text);

  GStoreFacade& m_facade;
  GEntityStoreDevice& m_device;
  std::vector<Row> m_rows;
  // Children of row i: m_children[m_first[i] .. m_first[i + 1]), as row
  // indices; the tree in compressed form.
  std::vector<std::size_t> m_first;
  std::vector<std::size_t> m_children;
  std::vector<std::size_t> m_breadthFirst;
  std::size_t m_nRoot = 0;
  std::size_t m_nTotal = 0;
  std::string m_error;
};

} // namespace zrn

#endif // ZRN_SRC_STORE_STOREWORK_H
