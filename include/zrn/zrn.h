// The whole public API of the zrn library, and TinyXML's document classes
// that the library offers its hosts for XML reading and writing.
#ifndef ZRN_ZRN_H
#define ZRN_ZRN_H

#include <zrn/Export.h>
#include <zrn/ThreadSafety.h>
#include <zrn/Version.h>

#include <zrn/IO/ArchiveReader.h>
#include <zrn/IO/DBDevice.h>
#include <zrn/IO/DataIOFacade.h>
#include <zrn/IO/DataSizeStream.h>
#include <zrn/IO/DbArchive.h>
#include <zrn/IO/DbArchiveImpl.h>
#include <zrn/IO/EndianInfo.h>
#include <zrn/IO/FileIOStream.h>
#include <zrn/IO/IODevice.h>
#include <zrn/IO/MemStream.h>
#include <zrn/IO/MemZip.h>
#include <zrn/Object/RefPtr.h>

#include <zrn/Notify/Selection.h>
#include <zrn/Notify/Subject.h>
#include <zrn/Notify/SubjectImpl.h>

#include <zrn/Object/DataType.h>
#include <zrn/Object/Entity.h>
#include <zrn/Object/IBase.h>
#include <zrn/Object/ObjTag.h>
#include <zrn/Object/ObjectFactory.h>
#include <zrn/Object/ObjectsState.h>
#include <zrn/Object/Project.h>
#include <zrn/Object/Referenced.h>
#include <zrn/Object/WeakPtr.h>

#include <zrn/Property/Color.h>
#include <zrn/Property/Geometry.h>
#include <zrn/Property/PropertyCollection.h>
#include <zrn/Property/Variant.h>

#include <zrn/Regen/ObjectRelation.h>
#include <zrn/Regen/RegenAtom.h>
#include <zrn/Regen/RegenEngine.h>
#include <zrn/Regen/RegenObject.h>
#include <zrn/Regen/RelationContext.h>

#include <zrn/Profile/Assert.h>
#include <zrn/Profile/ErrorCode.h>
#include <zrn/Profile/ErrorException.h>
#include <zrn/Profile/GLog/LogManager.h>
#include <zrn/Profile/GLog/Singleton.h>
#include <zrn/Profile/Profiler.h>
#include <zrn/Profile/QProfile.h>
#include <zrn/Profile/ValistStream.h>

#include <zrn/System/CoreSystem.h>
#include <zrn/System/Debugger.h>
#include <zrn/System/MappedMalloc.h>
#include <zrn/System/MessageBox.h>
#include <zrn/System/Mutex.h>
#include <zrn/System/Random.h>
#include <zrn/System/Stopwatch.h>
#include <zrn/System/Timer.h>

#include <zrn/Text/Base64.h>
#include <zrn/Text/InputParser.h>
#include <zrn/Text/StringHelpers.h>
#include <zrn/Text/StringTrans.h>

#include <tinyxml.h>

#endif // ZRN_ZRN_H
