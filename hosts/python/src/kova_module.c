/* The module kova._kova: its exceptions and functions. */
#include "kova_python.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>

/* ---- Errors and texts ---- */

module_state *state_of(PyTypeObject *type) {
    for (; type; type = PyType_GetSlot(type, Py_tp_base)) {
        PyObject *module = PyType_GetModule(type);
        if (module && PyModule_GetDef(module) == &kova_module) return PyModule_GetState(module);
        PyErr_Clear();
    }
    PyErr_SetString(PyExc_SystemError, "the type is not one of kova._kova");
    return NULL;
}

static int is_missing(int number) {
    return number == KO_ENOLOCALE || number == KO_ENOCODESET || number == KO_ENOCONV;
}

PyObject *set_error(module_state *state, int number, const char *what) {
    if (number == KO_ENOMEM) return PyErr_NoMemory();
    PyObject *type = is_missing(number) ? state->not_found : state->error;
    PyObject *text = PyUnicode_FromFormat("%s: %s", what, ko_error_text(number));
    PyObject *error = text ? PyObject_CallFunctionObjArgs(type, text, NULL) : NULL;
    PyObject *value = error ? PyLong_FromLong(number) : NULL;
    if (value && PyObject_SetAttrString(error, "number", value) == 0) PyErr_SetObject(type, error);
    Py_XDECREF(value);
    Py_XDECREF(error);
    Py_XDECREF(text);
    return NULL;
}

static int take_bytes(PyObject *bytes, utf8_text *text) {
    char *start;
    Py_ssize_t length;
    if (!bytes || PyBytes_AsStringAndSize(bytes, &start, &length) < 0) {
        Py_XDECREF(bytes);
        return -1;
    }
    *text = (utf8_text){start, (size_t)length, bytes};
    return 0;
}

static int refuse_type(PyObject *object) {
    if (PyUnicode_Check(object)) return 0;
    PyObject *name = PyType_GetName(Py_TYPE(object));
    if (name) PyErr_Format(PyExc_TypeError, "a str is needed, not %U", name);
    Py_XDECREF(name);
    return -1;
}

/* The bytes are made for the call: a copy that the str keeps would stay as long as the str does,
 * and sorting a list would double its memory. */
int strict_text(PyObject *str, utf8_text *text) {
    if (refuse_type(str) < 0) return -1;
    return take_bytes(PyUnicode_AsUTF8String(str), text);
}

int any_text(PyObject *str, utf8_text *text) {
    if (strict_text(str, text) == 0) return 0;
    if (!PyErr_ExceptionMatches(PyExc_UnicodeEncodeError)) return -1;
    PyErr_Clear();
    return take_bytes(PyUnicode_AsEncodedString(str, "utf-8", "surrogatepass"), text);
}

void release_text(utf8_text *text) { Py_CLEAR(text->owner); }

/* ---- Functions ---- */

/* Text that is collected in pieces, in memory of the C library. */
typedef struct collected {
    char *text;
    size_t length, room;
} collected;

static int collect(collected *to, const char *text) {
    const size_t length = strlen(text);
    if (to->room - to->length <= length) {
        const size_t room = 2 * (to->room + length) + 1024;
        char *const more = realloc(to->text, room);
        if (!more) return KO_ENOMEM;
        to->text = more;
        to->room = room;
    }
    memcpy(to->text + to->length, text, length + 1);
    to->length += length;
    return 0;
}

static PyObject *collected_str(collected *from) {
    PyObject *str =
        PyUnicode_DecodeUTF8(from->text ? from->text : "", (Py_ssize_t)from->length, "replace");
    free(from->text);
    return str;
}

static int add_locale(void *user, const ko_locale_entry *entry) {
    char error[16];
    snprintf(error, sizeof error, "\t%d\n", entry->error);
    const int failed = collect(user, entry->spec);
    return failed ? failed : collect(user, error);
}

static PyObject *list_locales(PyObject *module, PyObject *args) {
    const char *root;
    collected list = {NULL, 0, 0};
    if (!PyArg_ParseTuple(args, "z", &root)) return NULL;
    const int error = ko_list_locales(root, add_locale, &list);
    if (error == 0) return collected_str(&list);
    free(list.text);
    return set_error(PyModule_GetState(module), error, root ? root : "the default data root");
}

static PyObject *code_set_number(PyObject *module, PyObject *args) {
    const char *root, *name;
    (void)module;
    if (!PyArg_ParseTuple(args, "zs", &root, &name)) return NULL;
    const int number = ko_codeset_number(root, name);
    if (number == -KO_ENOMEM) return PyErr_NoMemory();
    return PyLong_FromLong(number);
}

static PyObject *error_text(PyObject *module, PyObject *number) {
    (void)module;
    const long value = PyLong_AsLong(number);
    if (value == -1 && PyErr_Occurred()) return NULL;
    const int known = value >= 0 && value <= INT_MAX;
    return PyUnicode_FromString(ko_error_text(known ? (int)value : -1));
}

/* The lines of an object's header, which tell where it comes from. */
static int read_header(void *stream, collected *header) {
    char line[1024];
    int wanted = 3, error = 0;
    for (int i = 0; !error && i < wanted && ko_ext_fgets(line, sizeof line, stream); ++i) {
        if (i == 2) sscanf(line, "HEADER_LINES=%d", &wanted);
        if (wanted > 256) wanted = 256;
        error = collect(header, line);
    }
    ko_ext_fclose(stream);
    return error;
}

static PyObject *object_header(PyObject *module, PyObject *args) {
    const char *root, *file;
    collected header = {NULL, 0, 0};
    (void)module;
    if (!PyArg_ParseTuple(args, "zs", &root, &file)) return NULL;
    void *stream = root ? ko_ext_fopen(file, "rb") : ko_path_search(NULL, file, "lc", "11");
    const int error = stream ? read_header(stream, &header) : 0;
    if (!error) return collected_str(&header);
    free(header.text);
    return PyErr_NoMemory();
}

static PyMethodDef functions[] = {
    {"list_locales",    list_locales,    METH_VARARGS, "Rows of all locales of a data root."},
    {"code_set_number", code_set_number, METH_VARARGS, "A code set's number, or -error."    },
    {"error_text",      error_text,      METH_O,       "What an error number means."        },
    {"object_header",   object_header,   METH_VARARGS, "The header of a locale object."     },
    {NULL,              NULL,            0,            NULL                                 },
};

/* ---- The module ---- */

static int add_type(PyObject *module, PyType_Spec *spec, PyTypeObject **type) {
    *type = (PyTypeObject *)PyType_FromModuleAndSpec(module, spec, NULL);
    return *type ? PyModule_AddType(module, *type) : -1;
}

static int fill_module(PyObject *module) {
    module_state *state = PyModule_GetState(module);
    state->error = PyErr_NewExceptionWithDoc(
        "kova.Error", "What the library refuses; number is its error number.", PyExc_ValueError,
        NULL);
    if (!state->error || PyObject_SetAttrString(state->error, "number", Py_None) < 0) return -1;
    PyObject *bases = PyTuple_Pack(2, state->error, PyExc_LookupError);
    if (!bases) return -1;
    state->not_found = PyErr_NewExceptionWithDoc(
        "kova.NotFoundError", "There is no such locale, code set or conversion.", bases, NULL);
    Py_DECREF(bases);
    if (!state->not_found) return -1;
    if (PyModule_AddObjectRef(module, "Error", state->error) < 0 ||
        PyModule_AddObjectRef(module, "NotFoundError", state->not_found) < 0 ||
        PyModule_AddStringConstant(module, "library_version", ko_version()) < 0)
        return -1;
    if (add_type(module, &locale_spec, &state->locale_type) < 0) return -1;
    return add_type(module, &converter_spec, &state->converter_type);
}

static int traverse_module(PyObject *module, visitproc visit, void *arg) {
    module_state *state = PyModule_GetState(module);
    Py_VISIT(state->error);
    Py_VISIT(state->not_found);
    Py_VISIT(state->locale_type);
    Py_VISIT(state->converter_type);
    return 0;
}

static int clear_module(PyObject *module) {
    module_state *state = PyModule_GetState(module);
    Py_CLEAR(state->error);
    Py_CLEAR(state->not_found);
    Py_CLEAR(state->locale_type);
    Py_CLEAR(state->converter_type);
    return 0;
}

static PyModuleDef_Slot slots[] = {
    {Py_mod_exec, (void *)fill_module},
    {0,           NULL               },
};

struct PyModuleDef kova_module = {
    PyModuleDef_HEAD_INIT,
    .m_name = "kova._kova",
    .m_doc = "Calls of the library; the package kova is made of them.",
    .m_size = sizeof(module_state),
    .m_methods = functions,
    .m_slots = slots,
    .m_traverse = traverse_module,
    .m_clear = clear_module,
};

PyMODINIT_FUNC PyInit__kova(void);
PyMODINIT_FUNC PyInit__kova(void) { return PyModuleDef_Init(&kova_module); }
