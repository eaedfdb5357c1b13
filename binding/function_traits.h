#pragma once

/// What a native accessor returns and takes, and how a wrapper supplies its first parameter.

#include <Python.h>

#include <functional>
#include <memory>
#include <tuple>
#include <type_traits>
#include <utility>

#include "binding/wrapper.h"

namespace Tarn::Binding {

/// First parameter of a function that needs the Python object itself.
struct Self {
  PyObject* object;
};

/// Result and parameters of a function; an operation of a class counts its object as the first parameter.
template <class F>
struct FunctionTraits;

template <class R, class... P>
struct FunctionTraits<R (*)(P...)> {
  using Result = R;
  using Params = std::tuple<P...>;
};
template <class R, class... P>
struct FunctionTraits<R (*)(P...) noexcept> : FunctionTraits<R (*)(P...)> {};
template <class R, class C, class... P>
struct FunctionTraits<R (C::*)(P...)> : FunctionTraits<R (*)(C&, P...)> {};
template <class R, class C, class... P>
struct FunctionTraits<R (C::*)(P...) noexcept> : FunctionTraits<R (*)(C&, P...)> {};
template <class R, class C, class... P>
struct FunctionTraits<R (C::*)(P...) const> : FunctionTraits<R (*)(const C&, P...)> {};
template <class R, class C, class... P>
struct FunctionTraits<R (C::*)(P...) const noexcept> : FunctionTraits<R (*)(const C&, P...)> {};

template <auto Function>
using ResultOf = typename FunctionTraits<decltype(Function)>::Result;
template <auto Function>
using ParamsOf = typename FunctionTraits<decltype(Function)>::Params;
template <auto Function, std::size_t I>
using ParamOf = std::tuple_element_t<I, ParamsOf<Function>>;

/// Without its first element.
template <class Tuple>
struct TailOf;
template <class First, class... Rest>
struct TailOf<std::tuple<First, Rest...>> {
  using Type = std::tuple<Rest...>;
};

/// Supplies the first parameter of a function from a wrapper: the wrapper itself for Self, a shared reference
/// for a shared pointer, else the native object.
template <class First>
struct Receiver {
  using Native = std::remove_cvref_t<First>;
  template <class Body>
  static decltype(auto) Call(PyObject* wrapper, Body&& body) {
    const std::shared_ptr<Native> native = Extract<Native>(wrapper);
    return body(*native);
  }
};

template <>
struct Receiver<Self> {
  template <class Body>
  static decltype(auto) Call(PyObject* wrapper, Body&& body) {
    return body(Self{wrapper});
  }
};

template <class T>
struct Receiver<const std::shared_ptr<T>&> {
  template <class Body>
  static decltype(auto) Call(PyObject* wrapper, Body&& body) {
    const std::shared_ptr<T> native = Extract<T>(wrapper);
    return body(native);
  }
};

}  // namespace Tarn::Binding
