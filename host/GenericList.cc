#include "host/GenericList.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "host/memory_p.h"

GenericList::GenericList() : count(0), m_items(nullptr), m_capacity(0), m_gap(0)
{
}

GenericList::~GenericList()
{
    std::free(m_items);
}

void* GenericList::findItem(long index) const
{
    if (index < 0 || index >= count)
        return nullptr;
    return index < m_gap ? m_items[index] : ItemsBehindGap()[index];
}

void GenericList::append(void* item)
{
    insertAt(count, item);
}

// Moves the gap before item index. There must be a block.
void GenericList::MoveGap(int index)
{
    const auto Move = [](void** to, void** from, int items) {
        std::memmove(to, from, static_cast<std::size_t>(items) * sizeof(void*));
    };
    if (index < m_gap)
        Move(ItemsBehindGap() + index, m_items + index, m_gap - index);
    else
        Move(m_items + m_gap, ItemsBehindGap() + m_gap, index - m_gap);
    m_gap = index;
}

void GenericList::insertAt(long index, void* item)
{
    if (count == m_capacity) {
        const int nCapacity = m_capacity < INT_MAX / 2 ? m_capacity * 2 + 8 : INT_MAX;
        const std::size_t nSlots = nCapacity > m_capacity ? static_cast<std::size_t>(nCapacity) : SIZE_MAX;
        m_items = static_cast<void**>(AllocateOrRaise(m_items, nSlots, sizeof(void*)));
        m_capacity = nCapacity;
        m_gap = count;
    }
    MoveGap(index < 0 ? 0 : index > count ? count : static_cast<int>(index));
    m_items[m_gap++] = item;
    ++count;
}

void* GenericList::remove(long index)
{
    if (index < 0 || index >= count)
        return nullptr;
    MoveGap(static_cast<int>(index));
    void* item = ItemsBehindGap()[index];
    --count;
    return item;
}

void GenericList::clear()
{
    count = m_gap = 0;
}
