/// \file
/// A stand-in for the list class of the host's companion library, with what the object array needs.
#ifndef TAVNOHOST_GENERICLIST_H
#define TAVNOHOST_GENERICLIST_H

#ifndef TAVNOHOST_API
#define TAVNOHOST_API __attribute__((visibility("default")))
#endif

/// An ordered list of untyped pointers, its items. It never owns what they point to. Indexes count from 0. Exhausted
/// memory raises 1 and changes nothing.
///
/// Finding an item takes constant time. The list is a gap buffer: an insertion or removal takes time in proportion to
/// the distance from the place of the last one; at or beside that place, amortised constant time.
class TAVNOHOST_API GenericList {
public:
    int count; ///< Number of items. It must stay the first field.

    GenericList();
    /// Frees the memory of the list; what the items point to stays.
    ~GenericList();
    GenericList(const GenericList&) = delete;
    GenericList& operator=(const GenericList&) = delete;

    /// The item at `index`; NULL when there is none.
    void* findItem(long index) const;
    /// Adds the item at the end.
    void append(void* item);
    /// Inserts the item before the one at `index`. An index below 0 inserts at the start, and one beyond the last item
    /// at the end.
    void insertAt(long index, void* item);
    /// Removes the item at `index` and returns it; returns NULL, and changes nothing, when there is none.
    void* remove(long index);
    /// Removes all items; what they point to stays.
    void clear();

private:
    // The free slots of the block, its gap, lie where the list was changed last:
    //
    //     | items 0 .. m_gap - 1 | free | items m_gap .. count - 1 |
    void** m_items;
    int m_capacity; // slots in the block
    int m_gap;      // items before the gap

    // Item i lies at this address plus i, if it is behind the gap.
    void** ItemsBehindGap() const { return m_items + (m_capacity - count); }
    void MoveGap(int index);
};

#endif
