#pragma once

#include <Eigen/Dense>

/// The library of matrices, in the one way that the engine includes it.
///
/// Up to 3.4 the library frees a matrix's numbers before it asks for the room of its new size, and keeps pointing at
/// them when that is refused, so that they are freed twice. The members below do the same without that, for every kind
/// of dynamic matrix that the engine has.
#if !EIGEN_VERSION_AT_LEAST(3, 4, 90)

namespace Eigen {

namespace internal {

/// Room for another number of elements. Throws std::bad_alloc, with data null and the sizes zero.
template <typename T, typename... Sizes>
void Renew(T*& data, Index size, Sizes&... sizes) {
    conditional_aligned_delete_auto<T, true>(data, static_cast<std::size_t>((sizes * ... * Index{1})));
    data = nullptr;
    ((sizes = 0), ...);
    if (size > 0) data = conditional_aligned_new_auto<T, true>(static_cast<std::size_t>(size));
}

}  // namespace internal

template <>
inline void DenseStorage<double, Dynamic, Dynamic, Dynamic, ColMajor>::resize(Index size, Index rows, Index cols) {
    if (size != m_rows * m_cols) internal::Renew(m_data, size, m_rows, m_cols);
    m_rows = rows;
    m_cols = cols;
}

template <>
inline void DenseStorage<double, Dynamic, Dynamic, Dynamic, RowMajor>::resize(Index size, Index rows, Index cols) {
    if (size != m_rows * m_cols) internal::Renew(m_data, size, m_rows, m_cols);
    m_rows = rows;
    m_cols = cols;
}

template <>
inline void DenseStorage<double, Dynamic, Dynamic, 1, ColMajor>::resize(Index size, Index rows, Index /*cols*/) {
    if (size != m_rows) internal::Renew(m_data, size, m_rows);
    m_rows = rows;
}

template <>
inline void DenseStorage<int, Dynamic, Dynamic, 1, ColMajor>::resize(Index size, Index rows, Index /*cols*/) {
    if (size != m_rows) internal::Renew(m_data, size, m_rows);
    m_rows = rows;
}

template <>
inline void DenseStorage<double, Dynamic, 1, Dynamic, RowMajor>::resize(Index size, Index /*rows*/, Index cols) {
    if (size != m_cols) internal::Renew(m_data, size, m_cols);
    m_cols = cols;
}

}  // namespace Eigen

#endif
