#include "host/GenericList.h"

#include <climits>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include "host/memory_p.h"

GenericList::GenericList() : count(0), m_items(nullptr), m_capacity(0)
{
}

GenericList::~GenericList()
{
    std::free(m_items);
}

void* GenericList::findItem(long index) const
{
    return index >= 0 && index < count ? m_items[index] : nullptr;
}

void GenericList::append(void* item)
{
    insertAt(count, item);
}

void GenericList::insertAt(long index, void* item)
{
    if (count == m_capacity) {
        const int nCapacity = m_capacity < INT_MAX / 2 ? m_capacity * 2 + 8 : INT_MAX;
        const std::size_t nSlots = nCapacity > m_capacity ? static_cast<std::size_t>(nCapacity) : SIZE_MAX;
        m_items = static_cast<void**>(AllocateOrRaise(m_items, nSlots, sizeof(void*)));
        m_capacity = nCapacity;
    }
    if (index < 0)
        index = 0;
    if (index > count)
        index = count;
    std::memmove(m_items + index + 1, m_items + index, static_cast<std::size_t>(count - index) * sizeof(void*));
    m_items[index] = item;
    ++count;
}

void* GenericList::remove(long index)
{
    if (index < 0 || index >= count)
        return nullptr;
    void* item = m_items[index];
    --count;
    std::memmove(m_items + index, m_items + index + 1, static_cast<std::size_t>(count - index) * sizeof(void*));
    return item;
}

void GenericList::clear()
{
    count = 0;
}
