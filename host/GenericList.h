/// \file
/// List class of the companion library, as far as the object array uses it.
#ifndef TAVNOHOST_GENERICLIST_H
#define TAVNOHOST_GENERICLIST_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// An ordered list of untyped items, which it never owns. Indexes count from 0. Exhausted memory raises 1 and changes
/// nothing.
///
/// An insertion or removal takes constant time, on average, at or beside the index of the last one; elsewhere time in
/// proportion to the number of items between the two. Finding an item takes constant time.
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
    // The free slots of the block lie together, where the list was changed last:
    //
    //     | items 0 .. m_gap - 1 | free | items m_gap .. count - 1 |
    void** m_items;
    int m_capacity; // slots in the block
    int m_gap;      // items before the free slots

    void** ItemsBehindGap() const { return m_items + (m_capacity - count); } // the address of item i is this, plus i
    void MoveGap(int index);
};

#endif
