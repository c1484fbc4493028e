#include "tests/support/gl_recorder.h"

#include <GLES/gl.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <map>
#include <numeric>
#include <utility>

GlRecorder glRecorder;

GlLines GlRecorder::take() { return std::exchange(lines, {}); }

std::vector<GlDrawn> GlRecorder::takeDraws() {
    std::vector<GlDrawn> drawn;
    GlLines sent;
    for (const std::string& line : take()) {
        sent.push_back(line);
        if (line.starts_with("glDraw")) drawn.push_back({sent, draws.at(drawn.size())});
    }
    return drawn;
}

std::string GlDrawn::lastOf(const std::vector<std::string>& beginnings) const {
    GlLines found;
    for (const std::string& beginning : beginnings) {
        const auto line = std::find_if(lines.rbegin(), lines.rend(),
                                       [&](const std::string& each) { return brief({each}).starts_with(beginning); });
        if (line != lines.rend()) found.push_back(*line);
    }
    return brief(found);
}

bool GlDrawn::has(const std::string& capability) const {
    const auto line = std::find_if(lines.rbegin(), lines.rend(), [&](const std::string& each) {
        return each.ends_with("able(GL_" + capability + ")");
    });
    return line != lines.rend() && line->starts_with("glEnable");
}

std::string GlDrawn::unit(int index) const {
    GlLines sent;
    bool active = false;
    for (const std::string& line : lines) {
        if (line.starts_with("glActiveTexture("))
            active = line == "glActiveTexture(GL_TEXTURE" + std::to_string(index) + ")";
        if (active && line.ends_with("able(GL_TEXTURE_2D)")) sent.clear();
        if (active && line.starts_with("glDisable(GL_TEXTURE_2D)")) active = false;
        if (active && (line.starts_with("glBindTexture") || line.starts_with("glTexEnvf("))) sent.push_back(line);
    }
    return brief(sent);
}

GlLines linesBeyond(const GlLines& always, const GlLines& all) {
    GlLines beyond;
    size_t matched = 0;
    for (const std::string& line : all) {
        if (matched < always.size() && line == always[matched])
            ++matched;
        else
            beyond.push_back(line);
    }
    if (matched != always.size()) beyond.push_back("missing: " + always[matched]);
    return beyond;
}

GlLines only(const GlLines& lines, const std::string& part) {
    GlLines found;
    std::ranges::copy_if(lines, std::back_inserter(found),
                         [&](const std::string& line) { return line.find(part) != std::string::npos; });
    return found;
}

std::string brief(const GlLines& lines) {
    std::string all;
    for (const std::string& line : lines)
        all += (all.empty() ? "" : "; ") + line.substr(line.starts_with("gl") ? 2 : 0);
    for (const std::string left : {"GL_", "TEXTURE_2D, ", "TEXTURE_ENV, TEXTURE_ENV_", "FRONT_AND_BACK, "})
        for (size_t at; (at = all.find(left)) != std::string::npos;) all.erase(at, left.size());
    const std::string unturned = "{1, 0, 0, 0, 0, 1, 0, 0, 0, 0, 1, 0, ", end = ", 1})";
    for (size_t at = 0; (at = all.find(unturned, at)) != std::string::npos;) {
        all.erase(at, unturned.size()).insert(at, "at ");
        all.erase(all.find(end, at), end.size() - 1);
    }
    return all;
}

GlRecorder::MatrixStack& GlRecorder::currentMatrix() {
    if (matrixMode == GL_PROJECTION) return projection;
    return matrixMode == GL_TEXTURE ? textureMatrix[activeUnit] : modelView;
}

namespace {

// --- Matrices ---

void multiply(GlRecorder::Matrix& left, const GlRecorder::Matrix& right) {
    const GlRecorder::Matrix m = left;
    for (size_t column = 0; column < 4; ++column) {
        for (size_t row = 0; row < 4; ++row) {
            float& sum = left[4 * column + row];
            sum = 0;
            for (size_t i = 0; i < 4; ++i) sum += m[4 * i + row] * right[4 * column + i];
        }
    }
}

// The vectors, completed by 0, 0, 1, after the matrix and divided by their last component.
GlDraw::Vectors transformed(const GlRecorder::Matrix& m, const GlDraw::Vectors& vectors) {
    GlDraw::Vectors all;
    for (std::vector<float> in : vectors) {
        if (in.size() < 4) in.resize(3);
        if (in.size() == 3) in.push_back(1);
        std::array<float, 4> out{};
        for (size_t row = 0; row < 4; ++row)
            for (size_t i = 0; i < 4; ++i) out[row] += m[4 * i + row] * in[i];
        all.push_back({out[0] / out[3], out[1] / out[3], out[2] / out[3]});
    }
    return all;
}

// --- Text ---

// clang-format off
#define NAME(constant) {constant, #constant}
const std::map<GLenum, const char*> kNames = {
    NAME(GL_ADD), NAME(GL_ALPHA), NAME(GL_ALPHA_TEST), NAME(GL_ALWAYS), NAME(GL_AMBIENT), NAME(GL_BACK),
    NAME(GL_BLEND), NAME(GL_BYTE), NAME(GL_CCW), NAME(GL_CLAMP_TO_EDGE), NAME(GL_COLOR_ARRAY), NAME(GL_COLOR_MATERIAL),
    NAME(GL_CONSTANT_ATTENUATION), NAME(GL_CULL_FACE), NAME(GL_CW), NAME(GL_DECAL), NAME(GL_DEPTH_TEST),
    NAME(GL_DIFFUSE), NAME(GL_DITHER), NAME(GL_DST_COLOR), NAME(GL_EMISSION), NAME(GL_EXP), NAME(GL_FASTEST),
    NAME(GL_FLAT), NAME(GL_FLOAT), NAME(GL_FOG), NAME(GL_FOG_COLOR), NAME(GL_FOG_DENSITY), NAME(GL_FOG_END),
    NAME(GL_FOG_MODE), NAME(GL_FOG_START), NAME(GL_FRONT), NAME(GL_FRONT_AND_BACK), NAME(GL_GEQUAL), NAME(GL_LEQUAL),
    NAME(GL_LIGHTING), NAME(GL_LIGHT_MODEL_AMBIENT), NAME(GL_LIGHT_MODEL_TWO_SIDE), NAME(GL_LINEAR),
    NAME(GL_LINEAR_ATTENUATION), NAME(GL_LINEAR_MIPMAP_LINEAR), NAME(GL_LINEAR_MIPMAP_NEAREST), NAME(GL_LUMINANCE),
    NAME(GL_LUMINANCE_ALPHA), NAME(GL_MODELVIEW), NAME(GL_MODULATE), NAME(GL_NEAREST), NAME(GL_NEAREST_MIPMAP_LINEAR),
    NAME(GL_NEAREST_MIPMAP_NEAREST), NAME(GL_NICEST), NAME(GL_NORMALIZE), NAME(GL_NORMAL_ARRAY),
    NAME(GL_ONE_MINUS_SRC_ALPHA), NAME(GL_PACK_ALIGNMENT), NAME(GL_PALETTE8_R5_G6_B5_OES),
    NAME(GL_PALETTE8_RGB5_A1_OES), NAME(GL_PALETTE8_RGB8_OES), NAME(GL_PALETTE8_RGBA4_OES),
    NAME(GL_PALETTE8_RGBA8_OES), NAME(GL_PERSPECTIVE_CORRECTION_HINT), NAME(GL_POLYGON_OFFSET_FILL), NAME(GL_POSITION),
    NAME(GL_PROJECTION), NAME(GL_QUADRATIC_ATTENUATION), NAME(GL_REPEAT), NAME(GL_REPLACE), NAME(GL_RESCALE_NORMAL),
    NAME(GL_RGB), NAME(GL_RGBA), NAME(GL_SCISSOR_TEST), NAME(GL_SHININESS), NAME(GL_SHORT), NAME(GL_SMOOTH),
    NAME(GL_SPECULAR), NAME(GL_SPOT_CUTOFF), NAME(GL_SPOT_DIRECTION), NAME(GL_SPOT_EXPONENT), NAME(GL_SRC_ALPHA),
    NAME(GL_SRC_COLOR), NAME(GL_TEXTURE), NAME(GL_TEXTURE_2D), NAME(GL_TEXTURE_COORD_ARRAY), NAME(GL_TEXTURE_ENV),
    NAME(GL_TEXTURE_ENV_COLOR), NAME(GL_TEXTURE_ENV_MODE), NAME(GL_TEXTURE_MAG_FILTER), NAME(GL_TEXTURE_MIN_FILTER),
    NAME(GL_TEXTURE_WRAP_S), NAME(GL_TEXTURE_WRAP_T), NAME(GL_UNPACK_ALIGNMENT), NAME(GL_UNSIGNED_BYTE),
    NAME(GL_UNSIGNED_SHORT), NAME(GL_UNSIGNED_SHORT_4_4_4_4), NAME(GL_UNSIGNED_SHORT_5_6_5), NAME(GL_VERTEX_ARRAY)};
#undef NAME
// clang-format on

// Small values have several names, so the functions know which kind they are given.
std::string name(GLenum value) {
    if (value >= GL_LIGHT0 && value <= GL_LIGHT7) return "GL_LIGHT" + std::to_string(value - GL_LIGHT0);
    if (value >= GL_TEXTURE0 && value <= GL_TEXTURE31) return "GL_TEXTURE" + std::to_string(value - GL_TEXTURE0);
    const auto found = kNames.find(value);
    if (found != kNames.end()) return found->second;
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%04X", value);
    return hex;
}
std::string factor(GLenum value) { return value == GL_ZERO ? "GL_ZERO" : value == GL_ONE ? "GL_ONE" : name(value); }
std::string primitives(GLenum mode) {
    static const char* const kModes[] = {"GL_POINTS",    "GL_LINES",          "GL_LINE_LOOP",   "GL_LINE_STRIP",
                                         "GL_TRIANGLES", "GL_TRIANGLE_STRIP", "GL_TRIANGLE_FAN"};
    return kModes[mode];
}

std::string text(const std::string& words) { return words; }
std::string text(GLint value) { return std::to_string(value); }
std::string text(GLfloat value) {
    char digits[32];
    std::snprintf(digits, sizeof digits, "%g", double(value) + 0.0);  // + 0.0: no minus sign for zero
    return digits;
}
std::string floats(const GLfloat* values, size_t count) {
    std::string all = "{";
    for (size_t i = 0; i < count; ++i) all += (i ? ", " : "") + text(values[i]);
    return all + "}";
}

template <typename... Arguments>
std::string line(const char* call, Arguments... arguments) {
    std::string all = std::string(call) + "(";
    [[maybe_unused]] const char* separator = "";
    ((all += separator + text(arguments), separator = ", "), ...);
    return all + ")";
}

template <typename... Arguments>
void record(const char* call, Arguments... arguments) {
    glRecorder.lines.push_back(line(call, arguments...));
}

// --- Arrays ---

GlRecorder::Array* arrayOf(GLenum name) {
    switch (name) {
        case GL_VERTEX_ARRAY: return &glRecorder.positions;
        case GL_NORMAL_ARRAY: return &glRecorder.normals;
        case GL_COLOR_ARRAY: return &glRecorder.colors;
        default: return &glRecorder.texCoords[glRecorder.clientUnit];
    }
}

void setPointer(GlRecorder::Array* array, GLint size, GLenum type, const void* data) {
    array->size = size;
    array->type = type;
    array->data = data;
}

float component(const GlRecorder::Array& array, size_t index) {
    switch (array.type) {
        case GL_BYTE: return static_cast<const int8_t*>(array.data)[index];
        case GL_UNSIGNED_BYTE: return static_cast<const uint8_t*>(array.data)[index];
        case GL_SHORT: return static_cast<const int16_t*>(array.data)[index];
        default: return static_cast<const float*>(array.data)[index];
    }
}

GlDraw::Vectors resolve(const GlRecorder::Array& array, const std::vector<uint32_t>& vertices) {
    GlDraw::Vectors all;
    if (!array.enabled) return all;
    const auto size = size_t(array.size);
    for (const uint32_t vertex : vertices) {
        std::vector<float>& value = all.emplace_back();
        for (size_t i = 0; i < size; ++i) value.push_back(component(array, vertex * size + i));
    }
    return all;
}

void recordDraw(std::string call, const std::vector<uint32_t>& vertices) {
    const GlRecorder& r = glRecorder;
    GlDraw& draw = glRecorder.draws.emplace_back();
    draw.call = call;
    draw.positions = resolve(r.positions, vertices);
    draw.normals = resolve(r.normals, vertices);
    draw.colors = resolve(r.colors, vertices);
    GlRecorder::Matrix toClip = r.projection.top;
    multiply(toClip, r.modelView.top);
    draw.corners = transformed(toClip, draw.positions);
    for (size_t unit = 0; unit < 2; ++unit) {
        draw.texCoords[unit] = resolve(r.texCoords[unit], vertices);
        draw.lookups[unit] = transformed(r.textureMatrix[unit].top, draw.texCoords[unit]);
    }
    glRecorder.lines.push_back(std::move(call));
}

// --- Textures ---

size_t texelBytes(GLenum format, GLenum type) {
    if (type != GL_UNSIGNED_BYTE) return 2;
    return format == GL_LUMINANCE_ALPHA ? 2 : 1;
}

void recordUpload(std::string call, GLint level, const void* data, size_t byteCount) {
    const auto* bytes = static_cast<const uint8_t*>(data);
    glRecorder.uploads.push_back(
        {call, glRecorder.boundTextures[glRecorder.activeUnit], level, {bytes, bytes + byteCount}});
    glRecorder.lines.push_back(std::move(call));
    if (glRecorder.uploadsUntilOutOfMemory >= 0 && glRecorder.uploadsUntilOutOfMemory-- == 0)
        glRecorder.error = GL_OUT_OF_MEMORY;
}

}  // namespace

// --- The context ---

void GL_APIENTRY glActiveTexture(GLenum texture) {
    glRecorder.activeUnit = texture - GL_TEXTURE0;
    record("glActiveTexture", name(texture));
}
void GL_APIENTRY glAlphaFunc(GLenum func, GLfloat ref) { record("glAlphaFunc", name(func), ref); }
void GL_APIENTRY glBindTexture(GLenum target, GLuint texture) {
    glRecorder.boundTextures[glRecorder.activeUnit] = texture;
    record("glBindTexture", name(target), GLint(texture));
}
void GL_APIENTRY glBlendFunc(GLenum sfactor, GLenum dfactor) {
    record("glBlendFunc", factor(sfactor), factor(dfactor));
}
void GL_APIENTRY glClear(GLbitfield mask) {
    std::string bits;
    if (mask & GL_COLOR_BUFFER_BIT) bits += "color";
    if (mask & GL_DEPTH_BUFFER_BIT) bits += bits.empty() ? "depth" : ", depth";
    record("glClear", bits);
}
void GL_APIENTRY glClearColor(GLfloat r, GLfloat g, GLfloat b, GLfloat a) { record("glClearColor", r, g, b, a); }
void GL_APIENTRY glClientActiveTexture(GLenum texture) {
    glRecorder.clientUnit = texture - GL_TEXTURE0;
    record("glClientActiveTexture", name(texture));
}
void GL_APIENTRY glColor4f(GLfloat r, GLfloat g, GLfloat b, GLfloat a) { record("glColor4f", r, g, b, a); }
void GL_APIENTRY glColorMask(GLboolean r, GLboolean g, GLboolean b, GLboolean a) {
    record("glColorMask", GLint(r), GLint(g), GLint(b), GLint(a));
}
void GL_APIENTRY glColorPointer(GLint size, GLenum type, GLsizei stride, const void* pointer) {
    setPointer(&glRecorder.colors, size, type, pointer);
    record("glColorPointer", size, name(type), stride);
}
void GL_APIENTRY glCompressedTexImage2D(GLenum target, GLint level, GLenum format, GLsizei width, GLsizei height,
                                        GLint border, GLsizei size, const void* data) {
    recordUpload(line("glCompressedTexImage2D", name(target), level, name(format), width, height, border, size), level,
                 data, size_t(size));
}
void GL_APIENTRY glCullFace(GLenum mode) { record("glCullFace", name(mode)); }
void GL_APIENTRY glDeleteTextures(GLsizei n, const GLuint* textures) {
    for (GLsizei i = 0; i < n; ++i) {
        std::erase(glRecorder.liveTextures, textures[i]);
        record("glDeleteTextures", GLint(textures[i]));
    }
}
void GL_APIENTRY glDepthFunc(GLenum func) { record("glDepthFunc", name(func)); }
void GL_APIENTRY glDepthMask(GLboolean flag) { record("glDepthMask", GLint(flag)); }
void GL_APIENTRY glDepthRangef(GLfloat near, GLfloat far) { record("glDepthRangef", near, far); }
void GL_APIENTRY glDisable(GLenum cap) { record("glDisable", name(cap)); }
void GL_APIENTRY glDisableClientState(GLenum array) {
    arrayOf(array)->enabled = false;
    record("glDisableClientState", name(array));
}
void GL_APIENTRY glDrawArrays(GLenum mode, GLint first, GLsizei count) {
    std::vector<uint32_t> vertices(size_t(std::max(count, 0)));
    std::iota(vertices.begin(), vertices.end(), uint32_t(first));
    recordDraw(line("glDrawArrays", primitives(mode), first, count), vertices);
}
void GL_APIENTRY glDrawElements(GLenum mode, GLsizei count, GLenum type, const void* indices) {
    const auto* words = static_cast<const uint16_t*>(indices);
    recordDraw(line("glDrawElements", primitives(mode), count, name(type)), {words, words + count});
}
void GL_APIENTRY glEnable(GLenum cap) { record("glEnable", name(cap)); }
void GL_APIENTRY glEnableClientState(GLenum array) {
    arrayOf(array)->enabled = true;
    record("glEnableClientState", name(array));
}
void GL_APIENTRY glFinish() { record("glFinish"); }
void GL_APIENTRY glFogf(GLenum pname, GLfloat param) {
    if (pname == GL_FOG_MODE)
        record("glFogf", name(pname), name(GLenum(param)));
    else
        record("glFogf", name(pname), param);
}
void GL_APIENTRY glFogfv(GLenum pname, const GLfloat* params) { record("glFogfv", name(pname), floats(params, 4)); }
void GL_APIENTRY glFrontFace(GLenum mode) { record("glFrontFace", name(mode)); }
void GL_APIENTRY glGenTextures(GLsizei n, GLuint* textures) {
    for (GLsizei i = 0; i < n; ++i) {
        textures[i] = ++glRecorder.lastTexture;
        glRecorder.liveTextures.push_back(textures[i]);
        record("glGenTextures", GLint(textures[i]));
    }
}
GLenum GL_APIENTRY glGetError() {
    record("glGetError");
    return std::exchange(glRecorder.error, GLenum(GL_NO_ERROR));
}
void GL_APIENTRY glGetIntegerv(GLenum pname, GLint* data) {
    *data = pname == GL_PACK_ALIGNMENT ? glRecorder.packAlignment : glRecorder.unpackAlignment;
    record("glGetIntegerv", name(pname));
}
void GL_APIENTRY glHint(GLenum target, GLenum mode) { record("glHint", name(target), name(mode)); }
void GL_APIENTRY glLightModelf(GLenum pname, GLfloat param) { record("glLightModelf", name(pname), param); }
void GL_APIENTRY glLightModelfv(GLenum pname, const GLfloat* params) {
    record("glLightModelfv", name(pname), floats(params, 4));
}
void GL_APIENTRY glLightf(GLenum light, GLenum pname, GLfloat param) {
    record("glLightf", name(light), name(pname), param);
}
void GL_APIENTRY glLightfv(GLenum light, GLenum pname, const GLfloat* params) {
    record("glLightfv", name(light), name(pname), floats(params, pname == GL_SPOT_DIRECTION ? 3u : 4u));
}
void GL_APIENTRY glLoadIdentity() {
    glRecorder.currentMatrix().top = GlRecorder::MatrixStack().top;
    record("glLoadIdentity");
}
void GL_APIENTRY glLoadMatrixf(const GLfloat* m) {
    std::copy_n(m, 16, glRecorder.currentMatrix().top.begin());
    record("glLoadMatrixf", floats(m, 16));
}
void GL_APIENTRY glMaterialf(GLenum face, GLenum pname, GLfloat param) {
    record("glMaterialf", name(face), name(pname), param);
}
void GL_APIENTRY glMaterialfv(GLenum face, GLenum pname, const GLfloat* params) {
    record("glMaterialfv", name(face), name(pname), floats(params, 4));
}
void GL_APIENTRY glMatrixMode(GLenum mode) {
    glRecorder.matrixMode = mode;
    record("glMatrixMode", name(mode));
}
void GL_APIENTRY glNormalPointer(GLenum type, GLsizei stride, const void* pointer) {
    setPointer(&glRecorder.normals, 3, type, pointer);
    record("glNormalPointer", name(type), stride);
}
void GL_APIENTRY glOrthof(GLfloat l, GLfloat r, GLfloat b, GLfloat t, GLfloat n, GLfloat f) {
    multiply(glRecorder.currentMatrix().top, {2 / (r - l), 0, 0, 0, 0, 2 / (t - b), 0, 0, 0, 0, -2 / (f - n), 0,
                                              -(r + l) / (r - l), -(t + b) / (t - b), -(f + n) / (f - n), 1});
    record("glOrthof", l, r, b, t, n, f);
}
void GL_APIENTRY glPolygonOffset(GLfloat factor, GLfloat units) { record("glPolygonOffset", factor, units); }
void GL_APIENTRY glPopMatrix() {
    GlRecorder::MatrixStack& stack = glRecorder.currentMatrix();
    if (!stack.saved.empty()) {
        stack.top = stack.saved.back();
        stack.saved.pop_back();
        record("glPopMatrix");
    } else {
        record("glPopMatrix from an empty stack");
    }
}
void GL_APIENTRY glPushMatrix() {
    GlRecorder::MatrixStack& stack = glRecorder.currentMatrix();
    stack.saved.push_back(stack.top);
    record("glPushMatrix");
}
void GL_APIENTRY glReadPixels(GLint x, GLint y, GLsizei width, GLsizei height, GLenum format, GLenum type,
                              void* pixels) {
    const auto rowBytes = size_t(width) * 4, alignment = size_t(glRecorder.packAlignment);
    const size_t stride = (rowBytes + alignment - 1) / alignment * alignment;
    for (size_t row = 0; row < size_t(height); ++row)
        std::memcpy(static_cast<uint8_t*>(pixels) + row * stride, &glRecorder.frame.at(row * rowBytes), rowBytes);
    record("glReadPixels", x, y, width, height, name(format), name(type));
}
void GL_APIENTRY glScalef(GLfloat x, GLfloat y, GLfloat z) {
    multiply(glRecorder.currentMatrix().top, {x, 0, 0, 0, 0, y, 0, 0, 0, 0, z, 0, 0, 0, 0, 1});
    record("glScalef", x, y, z);
}
void GL_APIENTRY glScissor(GLint x, GLint y, GLsizei width, GLsizei height) {
    record("glScissor", x, y, width, height);
}
void GL_APIENTRY glShadeModel(GLenum mode) { record("glShadeModel", name(mode)); }
void GL_APIENTRY glTexCoordPointer(GLint size, GLenum type, GLsizei stride, const void* pointer) {
    setPointer(&glRecorder.texCoords[glRecorder.clientUnit], size, type, pointer);
    record("glTexCoordPointer", size, name(type), stride);
}
void GL_APIENTRY glTexEnvf(GLenum target, GLenum pname, GLfloat param) {
    record("glTexEnvf", name(target), name(pname), name(GLenum(param)));
}
void GL_APIENTRY glTexEnvfv(GLenum target, GLenum pname, const GLfloat* params) {
    record("glTexEnvfv", name(target), name(pname), floats(params, 4));
}
void GL_APIENTRY glTexEnvx(GLenum target, GLenum pname, GLfixed param) {
    record("glTexEnvx", name(target), name(pname), name(GLenum(param)));
}
void GL_APIENTRY glTexImage2D(GLenum target, GLint level, GLint internal, GLsizei width, GLsizei height, GLint border,
                              GLenum format, GLenum type, const void* pixels) {
    const auto rowBytes = size_t(width) * texelBytes(format, type), alignment = size_t(glRecorder.unpackAlignment);
    const size_t stride = (rowBytes + alignment - 1) / alignment * alignment;
    const size_t byteCount = height ? stride * size_t(height - 1) + rowBytes : 0;
    recordUpload(line("glTexImage2D", name(target), level, name(GLenum(internal)), width, height, border, name(format),
                      name(type)),
                 level, pixels, byteCount);
}
void GL_APIENTRY glTexParameterf(GLenum target, GLenum pname, GLfloat param) {
    record("glTexParameterf", name(target), name(pname), name(GLenum(param)));
}
void GL_APIENTRY glVertexPointer(GLint size, GLenum type, GLsizei stride, const void* pointer) {
    setPointer(&glRecorder.positions, size, type, pointer);
    record("glVertexPointer", size, name(type), stride);
}
void GL_APIENTRY glViewport(GLint x, GLint y, GLsizei width, GLsizei height) {
    record("glViewport", x, y, width, height);
}
