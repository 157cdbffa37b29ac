#include "description.h"

const std::string* Enumeration::NameOf(long long nValue) const
{
    const auto found = names.find(nValue);
    return found == names.end() ? nullptr : &found->second;
}

// Numbers wrap around, as they do where the program computes with them.
long long Expression::Evaluate(const long long* pVariables) const
{
    if (op == constant || op == variable)
        return op == constant ? nValue : pVariables[nValue];
    const long long nLeft = pLeft->Evaluate(pVariables);
    if (op == both || op == either)
        return nLeft != 0 ? op == either || pRight->Evaluate(pVariables) != 0
                          : op == either && pRight->Evaluate(pVariables) != 0;
    const long long nRight = pRight == nullptr ? 0 : pRight->Evaluate(pVariables);
    const auto u = [](long long n) { return static_cast<unsigned long long>(n); };
    switch (op) {
    case negate:
        return nLeft == 0;
    case add:
        return static_cast<long long>(u(nLeft) + u(nRight));
    case subtract:
        return static_cast<long long>(u(nLeft) - u(nRight));
    case bitAnd:
        return nLeft & nRight;
    case equal:
        return nLeft == nRight;
    case unequal:
        return nLeft != nRight;
    case less:
        return nLeft < nRight;
    default:
        return nLeft <= nRight;
    }
}

bool Aggregate::IsDerivedFrom(const Aggregate* pWanted) const
{
    const Aggregate* p = this;
    while (p != nullptr && p != pWanted)
        p = p->pBase;
    return p == pWanted || pWanted == nullptr;
}

const Aggregate* Description::FindClass(const std::string& name) const
{
    const auto found = m_byName.find(name);
    return found == m_byName.end() || !found->second->bRecord ? nullptr : found->second;
}
