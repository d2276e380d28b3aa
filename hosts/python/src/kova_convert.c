/* The type kova._kova.Converter: a descriptor of ko_open_conversion. It converts bytes to bytes;
 * kova._codec makes codecs of it. */
#include "kova_python.h"

#include <limits.h>
#include <stdlib.h>
#include <string.h>

typedef struct converter_object {
    PyObject_HEAD ko_cv_t cd;
    module_state *state;
    int busy; /* a thread is inside run, perhaps without the interpreter's lock */
} converter_object;

/* ---- Making and freeing ---- */

static int open_conversion(converter_object *self, const char *from, const char *to,
                           const char *root, unsigned flags) {
    int error;
    Py_BEGIN_ALLOW_THREADS error = ko_open_conversion(&self->cd, root, from, to, flags);
    Py_END_ALLOW_THREADS if (error == 0) return 0;
    PyObject *what = PyUnicode_FromFormat("%s to %s", from, to);
    PyObject *bytes = what ? PyUnicode_AsUTF8String(what) : NULL;
    if (bytes) set_error(self->state, error, PyBytes_AsString(bytes));
    Py_XDECREF(bytes);
    Py_XDECREF(what);
    return -1;
}

static PyObject *new_converter(PyTypeObject *type, PyObject *args, PyObject *unused) {
    const char *from, *to, *root;
    unsigned flags;
    (void)unused;
    if (!PyArg_ParseTuple(args, "sszI", &from, &to, &root, &flags)) return NULL;
    module_state *state = state_of(type);
    allocfunc allocate = (allocfunc)PyType_GetSlot(type, Py_tp_alloc);
    converter_object *self = state ? (converter_object *)allocate(type, 0) : NULL;
    if (!self) return NULL;
    self->state = state;
    if (open_conversion(self, from, to, root, flags) == 0) return (PyObject *)self;
    Py_DECREF(self);
    return NULL;
}

static void free_converter(PyObject *object) {
    converter_object *self = (converter_object *)object;
    PyTypeObject *type = Py_TYPE(object);
    if (self->cd) ko_cv_unload(self->cd);
    ((freefunc)PyType_GetSlot(type, Py_tp_free))(self);
    Py_DECREF(type);
}

/* ---- Converting ---- */

/* One call of run. Nothing here needs the interpreter's lock, so memory is the C library's. */
typedef struct run_job {
    ko_cv_t cd;
    conv_state st;
    const unsigned char *text;
    size_t length, taken;
    int last;
    unsigned char *made;
    size_t used, room;
    int error, substituted;
} run_job;

enum { first_piece = 1 << 12, longest_piece = 1 << 20 };

static int make_room(run_job *job, size_t more) {
    if (job->room - job->used >= more) return 0;
    const size_t room = 2 * job->room > job->used + more ? 2 * job->room : job->used + more;
    unsigned char *made = room > (size_t)PY_SSIZE_T_MAX ? NULL : realloc(job->made, room);
    if (!made) return job->error = KO_ENOMEM;
    job->made = made;
    job->room = room;
    return 0;
}

/* Converts one piece with as much room as it needs; the place is that after what was taken. */
static void run_piece(run_job *job, int size, int last) {
    const conv_state before = job->st;
    size_t room = (size_t)ko_cv_outbuflen(job->cd, size) + 64;
    for (;; room *= 2) {
        if (room > INT_MAX) job->error = KO_ENOMEM;
        if (job->error || make_room(job, room)) return;
        const ko_mchar_t *in = job->text + job->taken;
        ko_mchar_t *out = job->made + job->used;
        int left = size, space = (int)room, substituted = 0;
        job->st = before;
        job->st.last_frag = last;
        *ko_ext_errno(job->cd) = 0;
        const int result = ko_cv_mconv(job->cd, &job->st, &in, &left, &out, &space, &substituted);
        const int error = *ko_ext_errno(job->cd);
        if (result != 0 && error == KO_E2BIG) continue;
        job->error = result == 0 ? 0 : error ? error : KO_EILSEQ;
        job->taken = (size_t)(in - job->text);
        job->used = (size_t)(out - job->made);
        job->substituted |= substituted;
        job->st.first_frag = 0;
        return;
    }
}

/* Pieces grow, so that little is done in vain where errors are frequent. A character that the end
 * of a piece cuts is read again with the next. */
static void run_all(run_job *job) {
    size_t piece = first_piece;
    do {
        const size_t left = job->length - job->taken, before = job->taken;
        const int whole = left <= piece;
        run_piece(job, (int)(whole ? left : piece), whole && job->last);
        if (job->error == KO_EINVAL && !whole && job->taken > before) job->error = 0;
        if (piece < longest_piece) piece *= 2;
        if (whole) break;
    } while (!job->error);
}

static PyObject *state_tuple(const conv_state *st) {
    return Py_BuildValue("(iIIK)", st->first_frag, (unsigned)st->source_state,
                         (unsigned)st->target_state, (unsigned long long)(uintptr_t)st->ext_state);
}

static int read_state(PyObject *tuple, conv_state *st) {
    unsigned source, target;
    unsigned long long ext;
    memset(st, 0, sizeof *st);
    if (!PyArg_ParseTuple(tuple, "iIIK", &st->first_frag, &source, &target, &ext)) return -1;
    st->source_state = (int)source;
    st->target_state = (int)target;
    st->ext_state = (void *)(uintptr_t)ext; /* bits, never an address */
    return 0;
}

static PyObject *job_result(const run_job *job) {
    PyObject *bytes = PyBytes_FromStringAndSize((const char *)job->made, (Py_ssize_t)job->used);
    PyObject *state = bytes ? state_tuple(&job->st) : NULL;
    if (!state) {
        Py_XDECREF(bytes);
        return NULL;
    }
    return Py_BuildValue("(NniNi)", bytes, (Py_ssize_t)job->taken, job->error, state,
                         job->substituted);
}

static PyObject *converter_run(PyObject *object, PyObject *args) {
    converter_object *self = (converter_object *)object;
    Py_buffer view;
    Py_ssize_t start;
    PyObject *state;
    run_job job = {.cd = self->cd};
    if (!PyArg_ParseTuple(args, "y*npO!", &view, &start, &job.last, &PyTuple_Type, &state))
        return NULL;
    PyObject *result = NULL;
    if (self->busy || start < 0 || start > view.len) {
        PyErr_SetString(PyExc_ValueError, "the converter is in use, or there is no such place");
    } else if (read_state(state, &job.st) == 0) {
        job.text = (const unsigned char *)view.buf + start;
        job.length = (size_t)(view.len - start);
        self->busy = 1;
        if (job.length < long_text) {
            run_all(&job);
        } else {
            Py_BEGIN_ALLOW_THREADS run_all(&job);
            Py_END_ALLOW_THREADS
        }
        self->busy = 0;
        result = job.error == KO_ENOMEM ? PyErr_NoMemory() : job_result(&job);
    }
    free(job.made);
    PyBuffer_Release(&view);
    return result;
}

/* ---- The type ---- */

static PyMethodDef methods[] = {
    {"run", converter_run, METH_VARARGS,
     "run($self, data, start, last, state, /)\n--\n\n"
     "Converts data from start on. Returns (bytes, bytes taken, error, state, substituted)."},
    {NULL,  NULL,          0,            NULL                                               },
};

static PyType_Slot slots[] = {
    {Py_tp_new,     (void *)new_converter },
    {Py_tp_dealloc, (void *)free_converter},
    {Py_tp_methods, methods               },
    {0,             NULL                  },
};

PyType_Spec converter_spec = {
    .name = "kova._kova.Converter",
    .basicsize = sizeof(converter_object),
    .flags = Py_TPFLAGS_DEFAULT,
    .slots = slots,
};
