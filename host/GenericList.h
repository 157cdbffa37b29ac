/// \file
/// List class of the companion library, as far as the object array uses it.
#ifndef TAVNOHOST_GENERICLIST_H
#define TAVNOHOST_GENERICLIST_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// An ordered list of untyped items, which it never owns. Indexes count from 0. Exhausted memory raises 1 and changes
/// nothing.
class TAVNOHOST_API GenericList {
public:
    int count; ///< Number of items; the first member of the list.

    GenericList();
    /// Releases the list's storage, not the items.
    ~GenericList();
    GenericList(const GenericList&) = delete;
    GenericList& operator=(const GenericList&) = delete;

    /// The item at `index`; NULL when there is none.
    void* findItem(long index) const;
    /// Adds the item at the end.
    void append(void* item);
    /// Inserts the item so that it has that index. An index before the first or behind the last item counts as the
    /// nearest end.
    void insertAt(long index, void* item);
    /// Takes out the item at `index` and returns it; NULL, and nothing changes, when there is none.
    void* remove(long index);
    /// Removes all items, leaving them alive.
    void clear();

private:
    void** m_items;
    int m_capacity;
};

#endif
