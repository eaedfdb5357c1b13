#pragma once

/// Methods made from native functions: argument parsing, overloads, conversion of the result.

#include <Python.h>

#include <algorithm>
#include <array>
#include <functional>
#include <optional>
#include <string>
#include <tuple>
#include <type_traits>
#include <utility>

#include "binding/convert.h"
#include "binding/errors.h"
#include "binding/function_traits.h"

namespace Tarn::Binding {

/// A parameter's name as a template argument.
template <std::size_t N>
struct Keyword {
  char text[N]{};
  // NOLINTNEXTLINE(google-explicit-constructor): a literal in a template argument list must convert.
  constexpr Keyword(const char (&literal)[N]) { std::copy(literal, literal + N, text); }
};

/// One signature: a native function and the Python names of its parameters (its receiver not counted).
/// A parameter of type std::optional may be left out of a call; such parameters stand last.
template <auto Function, Keyword... Names>
struct Signature {};

/// Whether the first parameter of the functions is supplied by the wrapper.
enum class CallKind { Instance, Static };

/// What the interpreter hands to a method.
struct RawCall {
  PyObject* self;
  PyObject* args;
  PyObject* kwargs;
};

template <class T>
inline constexpr bool kIsOptional = false;
template <class T>
inline constexpr bool kIsOptional<std::optional<T>> = true;

/// Converts one parsed argument; null stands for one that was left out.
template <class T>
T TakeArgument(PyObject* object) {
  if constexpr (kIsOptional<T>) {
    return object ? T(FromPython<typename T::value_type>(object)) : T();
  } else {
    return FromPython<T>(object);
  }
}

template <CallKind Kind, class Sig>
class Caller;

template <CallKind Kind, auto Function, Keyword... Names>
class Caller<Kind, Signature<Function, Names...>> {
  template <class... P>
  static auto Decayed(std::tuple<P...>*) -> std::tuple<std::remove_cvref_t<P>...>;
  template <class... V>
  static constexpr std::size_t CountRequired(std::tuple<V...>*) {
    return (std::size_t{0} + ... + (kIsOptional<V> ? 0 : 1));
  }
  template <class All>
  static auto WithoutReceiver() {
    if constexpr (Kind == CallKind::Static) {
      return static_cast<All*>(nullptr);
    } else {
      return static_cast<typename TailOf<All>::Type*>(nullptr);
    }
  }

 public:
  using Values = decltype(Decayed(WithoutReceiver<ParamsOf<Function>>()));
  static constexpr std::size_t kCount = sizeof...(Names);
  static_assert(std::tuple_size_v<Values> == kCount, "one name for each parameter");
  static constexpr std::size_t kRequired = CountRequired(static_cast<Values*>(nullptr));

  /// Matches the arguments by number and names. False: they do not fit; no Python error is pending.
  static bool Parse(const RawCall& call, std::array<PyObject*, kCount>& objects) {
    return ParseInto(call, objects, std::make_index_sequence<kCount>());
  }

  /// In parameter order.
  /// Throws: what the converters throw.
  static Values Convert(const std::array<PyObject*, kCount>& objects) {
    return ConvertAll(objects, std::make_index_sequence<kCount>());
  }

  static PyRef Invoke(PyObject* self, Values& values) {
    if constexpr (Kind == CallKind::Static) {
      return Result([&]() -> decltype(auto) { return std::apply(Function, std::move(values)); });
    } else {
      return Receiver<ParamOf<Function, 0>>::Call(self, [&](auto&& receiver) {
        return Result([&]() -> decltype(auto) {
          return std::apply(
              [&](auto&&... each) -> decltype(auto) {
                return std::invoke(Function, receiver, std::forward<decltype(each)>(each)...);
              },
              std::move(values));
        });
      });
    }
  }

 private:
  template <std::size_t... I>
  static bool ParseInto(const RawCall& call, std::array<PyObject*, kCount>& objects,
                        std::index_sequence<I...>) {
    objects.fill(nullptr);
    // A wrong number is common where overloads are tried, and the interpreter's own refusal is dear.
    const Py_ssize_t positional = PyTuple_Size(call.args);
    const auto given = static_cast<std::size_t>(positional + (call.kwargs ? PyDict_Size(call.kwargs) : 0));
    if (given < kRequired || given > kCount) return false;
    if (static_cast<std::size_t>(positional) == given) {
      for (std::size_t i = 0; i < given; ++i) {
        objects[i] = PyTuple_GetItem(call.args, static_cast<Py_ssize_t>(i));
      }
      return true;
    }
    static const char* keywords[] = {Names.text..., nullptr};
    static const std::string format = Format(std::make_index_sequence<kCount>());
    if (PyArg_ParseTupleAndKeywords(call.args, call.kwargs, format.c_str(), const_cast<char**>(keywords),
                                    &objects[I]...)) {
      return true;
    }
    PyErr_Clear();
    return false;
  }

  template <std::size_t... I>
  static std::string Format(std::index_sequence<I...>) {
    std::string format;
    bool optional = false;
    [[maybe_unused]] const auto append = [&](bool is_optional) {
      if (is_optional && !optional) format += '|';
      optional = is_optional;
      format += 'O';
    };
    (append(kIsOptional<std::tuple_element_t<I, Values>>), ...);
    return format;
  }

  template <std::size_t... I>
  static Values ConvertAll([[maybe_unused]] const std::array<PyObject*, kCount>& objects,
                           std::index_sequence<I...>) {
    return Values{TakeArgument<std::tuple_element_t<I, Values>>(objects[I])...};
  }

  template <class Body>
  static PyRef Result(Body&& body) {
    if constexpr (std::is_void_v<ResultOf<Function>>) {
      body();
      return PyRef::None();
    } else {
      return ToPython<std::remove_cvref_t<ResultOf<Function>>>(body());
    }
  }
};

/// Runs the one signature of a method; a conversion failure keeps its own text.
template <class C>
PyRef CallSingle(const RawCall& call) {
  std::array<PyObject*, C::kCount> objects;
  if (!C::Parse(call, objects)) throw OverloadParseError();
  auto values = C::Convert(objects);
  return C::Invoke(call.self, values);
}

/// Tries one signature of several. False: the arguments do not fit it. Failures of the native function itself
/// get through, they are no reason to try further signatures.
template <class C>
bool CallIfFits(const RawCall& call, PyRef& result) {
  std::array<PyObject*, C::kCount> objects;
  if (!C::Parse(call, objects)) return false;
  std::optional<typename C::Values> values;
  try {
    values.emplace(C::Convert(objects));
  } catch (const std::exception&) {
    PyErr_Clear();
    return false;
  }
  result = C::Invoke(call.self, *values);
  return true;
}

template <CallKind Kind, class... Signatures>
PyRef Dispatch(const RawCall& call) {
  if constexpr (sizeof...(Signatures) == 1) {
    return CallSingle<Caller<Kind, Signatures...>>(call);
  } else {
    PyRef result;
    if (!(CallIfFits<Caller<Kind, Signatures>>(call, result) || ...)) throw OverloadParseError();
    return result;
  }
}

/// A method entry's function.
template <CallKind Kind, class... Signatures>
PyObject* MethodFunction(PyObject* self, PyObject* args, PyObject* kwargs) {
  return Guarded<PyObject*>(nullptr, [&] {
    return Dispatch<Kind, Signatures...>({self, args, kwargs}).Release();
  });
}

/// Wraps the shared pointer that a constructor function made, for `type` or a subclass of it.
template <class Native>
PyRef Construct(PyTypeObject* type, std::shared_ptr<Native> native) {
  PyRef object = Checked(PyType_GenericAlloc(type, 0));
  Adopt(object.Get(), MakeHolder(std::move(native)));
  return object;
}

/// A type's constructor from a function that takes the type first and returns the wrapper (see Construct).
template <class... Signatures>
PyObject* ConstructorFunction(PyTypeObject* type, PyObject* args, PyObject* kwargs) {
  // The class object stands where a method has its wrapper.
  return MethodFunction<CallKind::Instance, Signatures...>(reinterpret_cast<PyObject*>(type), args, kwargs);
}

/// The first parameter of a constructor function.
struct NewType {
  PyTypeObject* type;
};

template <>
struct Receiver<NewType> {
  template <class Body>
  static decltype(auto) Call(PyObject* type, Body&& body) {
    return body(NewType{reinterpret_cast<PyTypeObject*>(type)});
  }
};

}  // namespace Tarn::Binding
