// kr_instances.cpp — the container instantiations that the library itself provides.
// The headers announce each of these with an extern template declaration, so hosts link against
// the exported copies below instead of instantiating their own. Element types of units that do
// not exist yet join this list with their units. The export attribute (KR_API) sits on the
// extern template declaration in the header, which every definition here sees first; g++ (and
// MinGW's g++) ignore, and warn about, an attribute repeated on the definition, while still
// exporting every member from the declaration's attribute.
#include "kr_array_impl.h"
#include "kr_btree.h"
#include "kr_container.h"
#include "kr_dllmanager.h"
#include "kr_hash_impl.h"
#include "kr_iterator_impl.h"
#include "kr_list_impl.h"
#include "kr_pipe.h"
#include "kr_pubarg.h"
#include "kr_queue_impl.h"
#include "kr_stack_impl.h"
#include "kr_str.h"
#include "kr_var.h"
#include "kr_vcarray_impl.h"
#include "kr_xml.h"

template struct KR_IteratorElem<unsigned int>;
template class KR_Container<unsigned int>;
template class KR_OrdContainer<unsigned int>;
template class KR_I_Iterator<unsigned int>;
template class KR_IndContainer<unsigned int>;
template class KR_Array<unsigned int>;

template struct KR_IteratorElem<KR_Command*>;
template class KR_Container<KR_Command*>;
template class KR_OrdContainer<KR_Command*>;
template class KR_I_Iterator<KR_Command*>;
template class KR_IndContainer<KR_Command*>;
template class KR_Array<KR_Command*>;
template class KR_VCArray<KR_Command*>;
template class KR_Stack<KR_Command*>;

template struct KR_VCARR_LLIST_REC<KR_Command*>;
template struct KR_IteratorElem<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_Container<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_OrdContainer<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_I_Iterator<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_IndContainer<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_LNode<KR_VCARR_LLIST_REC<KR_Command*>>;
template class KR_LList<KR_VCARR_LLIST_REC<KR_Command*>>;

template struct KR_IteratorElem<KR_String>;
template class KR_Container<KR_String>;
template class KR_OrdContainer<KR_String>;
template class KR_I_Iterator<KR_String>;
template class KR_IndContainer<KR_String>;
template class KR_Array<KR_String>;

template struct KR_IteratorElem<KR_StringW>;
template class KR_Container<KR_StringW>;
template class KR_OrdContainer<KR_StringW>;
template class KR_I_Iterator<KR_StringW>;
template class KR_IndContainer<KR_StringW>;
template class KR_Array<KR_StringW>;

template struct KR_IteratorElem<KR_Var>;
template class KR_Container<KR_Var>;
template class KR_OrdContainer<KR_Var>;
template class KR_I_Iterator<KR_Var>;
template class KR_IndContainer<KR_Var>;
template class KR_Array<KR_Var>;

template struct KR_IteratorElem<KR_VAR_TYPE>;
template class KR_Container<KR_VAR_TYPE>;
template class KR_OrdContainer<KR_VAR_TYPE>;
template class KR_I_Iterator<KR_VAR_TYPE>;
template class KR_IndContainer<KR_VAR_TYPE>;
template class KR_Array<KR_VAR_TYPE>;

template class KR_HashEntry<KR_Var, KR_Var>;
template struct KR_IteratorElem<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_Container<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_OrdContainer<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_I_Iterator<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_IndContainer<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_LNode<KR_HashEntry<KR_Var, KR_Var>>;
template class KR_LList<KR_HashEntry<KR_Var, KR_Var>>;
template struct KR_IteratorElem<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_Container<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_OrdContainer<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_I_Iterator<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_IndContainer<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_Array<KR_LList<KR_HashEntry<KR_Var, KR_Var>>>;
template class KR_HashTable<KR_Var, KR_Var>;

template struct KR_IteratorElem<KR_XmlSetting>;
template class KR_Container<KR_XmlSetting>;
template class KR_OrdContainer<KR_XmlSetting>;
template class KR_I_Iterator<KR_XmlSetting>;
template class KR_IndContainer<KR_XmlSetting>;
template class KR_Array<KR_XmlSetting>;

template class KR_HashEntry<KR_String, KR_DllEntry>;
template struct KR_IteratorElem<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_Container<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_OrdContainer<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_I_Iterator<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_IndContainer<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_LNode<KR_HashEntry<KR_String, KR_DllEntry>>;
template class KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>;
template struct KR_IteratorElem<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_Container<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_OrdContainer<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_I_Iterator<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_IndContainer<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_Array<KR_LList<KR_HashEntry<KR_String, KR_DllEntry>>>;
template class KR_HashTable<KR_String, KR_DllEntry>;

template struct KR_IteratorElem<KR_PipeEntry>;
template class KR_Container<KR_PipeEntry>;
template class KR_OrdContainer<KR_PipeEntry>;
template class KR_I_Iterator<KR_PipeEntry>;
template class KR_IndContainer<KR_PipeEntry>;
template class KR_Array<KR_PipeEntry>;

template struct KR_IteratorElem<KR_PubArg>;
template class KR_Container<KR_PubArg>;
template class KR_OrdContainer<KR_PubArg>;
template class KR_I_Iterator<KR_PubArg>;
template class KR_IndContainer<KR_PubArg>;
template class KR_Array<KR_PubArg>;

template struct KR_IteratorElem<KR_BtreeLink>;
template class KR_Container<KR_BtreeLink>;
template class KR_OrdContainer<KR_BtreeLink>;
template class KR_I_Iterator<KR_BtreeLink>;
template class KR_IndContainer<KR_BtreeLink>;
template class KR_Array<KR_BtreeLink>;
template struct KR_VCARR_LLIST_REC<KR_BtreeLink>;
template struct KR_IteratorElem<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_Container<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_OrdContainer<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_I_Iterator<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_IndContainer<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_LNode<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_LList<KR_VCARR_LLIST_REC<KR_BtreeLink>>;
template class KR_VCArray<KR_BtreeLink>;
template class KR_Queue<KR_BtreeLink>;
