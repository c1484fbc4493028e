// Images on their way to OpenGL ES: forms, levels, budget, and when they are uploaded again.
#include "render/texture_upload.h"
#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"
#include "tests/support/counting_heap.h"

using testing::ElementsAre;
using testing::IsEmpty;

class UploadTest : public BackendTest {
protected:
    UploadTest() { EXPECT_EQ(qelTextures_memoryInUse(), 0u); }
    ~UploadTest() override { EXPECT_EQ(qelTextures_memoryInUse(), 0u); }

    // Binds as a draw does; the calls, without those that every binding makes.
    GlLines bind(Texture2D* texture, Result expected = QEL_STATUS_OK) {
        glRecorder.take();
        EXPECT_EQ(qelTextures_bind(texture, limit), expected);
        return glRecorder.take();
    }
    // The upload calls alone.
    GlLines upload(Texture2D* texture) { return only(bind(texture), "TexImage2D"); }

    uint32_t limit = 0;
};

static constexpr int32_t kBase = int32_t(TextureFilter::BaseLevel), kLinear = int32_t(TextureFilter::Linear),
                         kNearest = int32_t(TextureFilter::Nearest);

static std::string sampling(const char* name, const char* value) {
    return std::string("glTexParameterf(GL_TEXTURE_2D, ") + name + ", " + value + ")";
}

TEST_F(UploadTest, TheFirstBindingUploadsAndLaterOnesOnlyBind) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 16, 8);
    const Held<Texture2D> texture = makeTexture(image), other = makeTexture(image);
    EXPECT_THAT(
        bind(texture),
        ElementsAre("glGenTextures(1)", "glBindTexture(GL_TEXTURE_2D, 1)",
                    "glTexImage2D(GL_TEXTURE_2D, 0, GL_RGB, 16, 8, 0, GL_RGB, GL_UNSIGNED_SHORT_5_6_5)", "glGetError()",
                    sampling("GL_TEXTURE_MIN_FILTER", "GL_NEAREST"), sampling("GL_TEXTURE_MAG_FILTER", "GL_NEAREST"),
                    sampling("GL_TEXTURE_WRAP_S", "GL_REPEAT"), sampling("GL_TEXTURE_WRAP_T", "GL_REPEAT")));
    EXPECT_THAT(bind(texture), ElementsAre("glBindTexture(GL_TEXTURE_2D, 1)"));
    EXPECT_THAT(bind(other), ElementsAre("glBindTexture(GL_TEXTURE_2D, 1)")) << "two textures share one upload";

    // Other filters of the second texture are sent, and those of the first again on its return.
    qelTexture2D_setFiltering(other, kBase, kLinear);
    EXPECT_THAT(bind(other).at(1), sampling("GL_TEXTURE_MIN_FILTER", "GL_LINEAR"));
    EXPECT_THAT(bind(texture).at(1), sampling("GL_TEXTURE_MIN_FILTER", "GL_NEAREST"));

    const Held<Image2D> otherImage = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> third = makeTexture(otherImage);
    bind(third);
    EXPECT_THAT(bind(texture), ElementsAre("glBindTexture(GL_TEXTURE_2D, 1)")) << "nothing to send between images";
}

TEST_F(UploadTest, EveryFormHasItsCall) {
    struct Case {
        ImageFormat format;
        std::string direct, palette;
        size_t paletteBytes;
    };
    for (const Case& c : {
             Case{ImageFormat::Alpha, "GL_ALPHA, 8, 8, 0, GL_ALPHA, GL_UNSIGNED_BYTE",
                  "GL_PALETTE8_RGBA8_OES, 8, 8, 0, 1088", 1024},
             Case{ImageFormat::Luminance, "GL_LUMINANCE, 8, 8, 0, GL_LUMINANCE, GL_UNSIGNED_BYTE",
                  "GL_PALETTE8_RGB8_OES, 8, 8, 0, 832", 768},
             Case{ImageFormat::LuminanceAlpha, "GL_LUMINANCE_ALPHA, 8, 8, 0, GL_LUMINANCE_ALPHA, GL_UNSIGNED_BYTE",
                  "GL_PALETTE8_RGBA8_OES, 8, 8, 0, 1088", 1024},
             Case{ImageFormat::Rgb, "GL_RGB, 8, 8, 0, GL_RGB, GL_UNSIGNED_SHORT_5_6_5",
                  "GL_PALETTE8_R5_G6_B5_OES, 8, 8, 0, 576", 512},
             Case{ImageFormat::Rgba, "GL_RGBA, 8, 8, 0, GL_RGBA, GL_UNSIGNED_SHORT_4_4_4_4",
                  "GL_PALETTE8_RGBA4_OES, 8, 8, 0, 576", 512},
         }) {
        const Held<Image2D> direct = makeImage(c.format, 8, 8), palettized = makePaletteImage(c.format, 8, 8);
        EXPECT_THAT(upload(makeTexture(direct)), ElementsAre("glTexImage2D(GL_TEXTURE_2D, 0, " + c.direct + ")"));
        EXPECT_THAT(upload(makeTexture(palettized)),
                    ElementsAre("glCompressedTexImage2D(GL_TEXTURE_2D, 0, " + c.palette + ")"));
        const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
        ASSERT_EQ(bytes.size(), c.paletteBytes + 64);
        EXPECT_EQ(std::vector(bytes.begin() + long(c.paletteBytes), bytes.end()), ramp(64)) << c.palette;
    }
    Result result;
    const std::vector<uint8_t> indices = ramp(64), palette = ramp(1024);
    const Held<Image2D> cutOut(qelImage2D_createPalettized5551(8, 8, indices.data(), palette.data(), &result));
    EXPECT_THAT(upload(makeTexture(cutOut)),
                ElementsAre("glCompressedTexImage2D(GL_TEXTURE_2D, 0, GL_PALETTE8_RGB5_A1_OES, 8, 8, 0, 576)"));
}

// A mutable image stores 3 or 4 bytes of 0xFF a pixel until the first set; its uploads are of the 16-bit form all
// along.
TEST_F(UploadTest, AnImageThatWasNeverSetIsWhite) {
    for (const ImageFormat format : {ImageFormat::Rgb, ImageFormat::Rgba}) {
        const Held<Image2D> image = makeMutableImage(format, 8, 4);
        const Held<Texture2D> texture = makeTexture(image);
        upload(texture);
        EXPECT_EQ(glRecorder.uploads.back().bytes, std::vector<uint8_t>(64, 0xFF));
        const uint8_t black[] = {0, 0, 0, 0};
        qelImage2D_set(image, 0, 0, 1, 1, black);
        upload(texture);
        std::vector<uint8_t> expected(64, 0xFF);
        expected[0] = expected[1] = 0;
        EXPECT_EQ(glRecorder.uploads.back().bytes, expected);
    }
}

TEST_F(UploadTest, FiltersAndWrapsHaveTheirParameters) {
    struct Case {
        int32_t level, image, wrapS, wrapT;
        const char *min, *mag, *s, *t;
    };
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    for (const Case& c :
         {Case{kBase, kLinear, 240, 241, "GL_LINEAR", "GL_LINEAR", "GL_CLAMP_TO_EDGE", "GL_REPEAT"},
          Case{kBase, kNearest, 241, 240, "GL_NEAREST", "GL_NEAREST", "GL_REPEAT", "GL_CLAMP_TO_EDGE"},
          Case{kLinear, kLinear, 240, 240, "GL_LINEAR_MIPMAP_LINEAR", "GL_LINEAR", "GL_CLAMP_TO_EDGE",
               "GL_CLAMP_TO_EDGE"},
          Case{kLinear, kNearest, 241, 241, "GL_NEAREST_MIPMAP_LINEAR", "GL_NEAREST", "GL_REPEAT", "GL_REPEAT"},
          Case{kNearest, kLinear, 241, 241, "GL_LINEAR_MIPMAP_NEAREST", "GL_LINEAR", "GL_REPEAT", "GL_REPEAT"},
          Case{kNearest, kNearest, 241, 241, "GL_NEAREST_MIPMAP_NEAREST", "GL_NEAREST", "GL_REPEAT", "GL_REPEAT"}}) {
        qelTexture2D_setFiltering(texture, c.level, c.image);
        qelTexture2D_setWrapping(texture, c.wrapS, c.wrapT);
        EXPECT_THAT(only(bind(texture), "Parameter"),
                    ElementsAre(sampling("GL_TEXTURE_MIN_FILTER", c.min), sampling("GL_TEXTURE_MAG_FILTER", c.mag),
                                sampling("GL_TEXTURE_WRAP_S", c.s), sampling("GL_TEXTURE_WRAP_T", c.t)));
    }
}

// --- Padded rows ---

TEST_F(UploadTest, RowsAreBroughtToTheAlignmentOfTheContext) {
    struct Case {
        const char* what;
        ImageFormat format;
        int32_t width, height, alignment;
        std::vector<uint8_t> bytes;
    };
    for (const Case& c : {
             Case{"one byte", ImageFormat::Alpha, 1, 4, 4, {0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3}},
             Case{"two bytes", ImageFormat::Luminance, 2, 2, 4, {0, 1, 0, 0, 2, 3}},
             Case{"two byte texel", ImageFormat::LuminanceAlpha, 1, 2, 4, {0, 1, 0, 0, 2, 3}},
             Case{"aligned", ImageFormat::Alpha, 4, 2, 4, {0, 1, 2, 3, 4, 5, 6, 7}},
             Case{"one row", ImageFormat::Alpha, 2, 1, 4, {0, 1}},
             Case{"host aligns to bytes", ImageFormat::Alpha, 2, 2, 1, {0, 1, 2, 3}},
             Case{"host aligns to 8", ImageFormat::Alpha, 4, 2, 8, {0, 1, 2, 3, 0, 0, 0, 0, 4, 5, 6, 7}},
         }) {
        const Held<Image2D> image = makeImage(c.format, c.width, c.height);
        glRecorder.unpackAlignment = c.alignment;
        bind(makeTexture(image));
        EXPECT_EQ(glRecorder.uploads.back().bytes, c.bytes) << c.what;
    }
}

// --- Smaller levels ---

TEST_F(UploadTest, DirectLevelsFollowTheBase) {
    const Held<Image2D> image = makeImage(ImageFormat::Luminance, 8, 2);
    const Held<Texture2D> texture = makeTexture(image);
    qelTexture2D_setFiltering(texture, kLinear, kLinear);
    const std::string rest = ", 0, GL_LUMINANCE, GL_UNSIGNED_BYTE)";
    EXPECT_THAT(upload(texture), ElementsAre("glTexImage2D(GL_TEXTURE_2D, 0, GL_LUMINANCE, 8, 2" + rest,
                                             "glTexImage2D(GL_TEXTURE_2D, 1, GL_LUMINANCE, 4, 1" + rest,
                                             "glTexImage2D(GL_TEXTURE_2D, 2, GL_LUMINANCE, 2, 1" + rest,
                                             "glTexImage2D(GL_TEXTURE_2D, 3, GL_LUMINANCE, 1, 1" + rest));
    EXPECT_EQ(glRecorder.uploads[1].bytes, (std::vector<uint8_t>{4, 6, 8, 10}));
    EXPECT_EQ(qelTextures_memoryInUse(), 128u) << "levels are not charged";
}

TEST_F(UploadTest, PaletteLevelsGoInOneCall) {
    struct Case {
        const char* what;
        ImageFormat format;
        int32_t width, height;
        std::string call;
    };
    for (const Case& c : {
             Case{"three components", ImageFormat::Rgb, 4, 4, "-2, GL_PALETTE8_RGB8_OES, 4, 4, 0, 789"},
             Case{"grey", ImageFormat::Luminance, 4, 4, "-2, GL_PALETTE8_RGB8_OES, 4, 4, 0, 789"},
             Case{"four components", ImageFormat::Rgba, 8, 2, "-3, GL_PALETTE8_RGBA8_OES, 8, 2, 0, 1047"},
             Case{"a single texel", ImageFormat::Alpha, 1, 1, "0, GL_PALETTE8_RGBA8_OES, 1, 1, 0, 1025"},
         }) {
        const Held<Image2D> image = makePaletteImage(c.format, c.width, c.height);
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setFiltering(texture, kNearest, kNearest);
        EXPECT_THAT(upload(texture), ElementsAre("glCompressedTexImage2D(GL_TEXTURE_2D, " + c.call + ")")) << c.what;
        EXPECT_EQ(qelTextures_memoryInUse(), 0u) << c.what;
        EXPECT_EQ(image->levelRecord->counted, 0) << c.what;
    }
}

TEST_F(UploadTest, OpaqueEntriesOfAChainStayOpaque) {
    Result result;
    const std::vector<uint8_t> indices(16, 1), palette = {1, 2, 3, 0, 255, 255, 255, 255};
    std::vector<uint8_t> full(1024, 0);
    std::copy(palette.begin(), palette.end(), full.begin());
    const Held<Image2D> images[] = {
        Held<Image2D>(qelImage2D_createPalettized5551(4, 4, indices.data(), full.data(), &result)),
        Held<Image2D>(qelImage2D_createPalettized(100, 4, 4, indices.data(), palette.data(), 8, &result))};
    for (const auto& image : images) {
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setFiltering(texture, kLinear, kNearest);
        bind(texture);
        EXPECT_EQ(glRecorder.uploads.back().bytes.at(3), 0);
        EXPECT_EQ(glRecorder.uploads.back().bytes.at(7), 255);
    }
}

TEST_F(UploadTest, LevelsAreAddedForTheFirstTextureThatWantsThem) {
    const Held<Image2D> image = makePaletteImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> plain = makeTexture(image), smooth = makeTexture(image);
    qelTexture2D_setFiltering(smooth, kLinear, kLinear);
    bind(plain);
    EXPECT_EQ(qelTextures_memoryInUse(), 128u);
    EXPECT_THAT(only(bind(smooth), "Textures("), ElementsAre("glDeleteTextures(1)", "glGenTextures(2)"));
    EXPECT_EQ(qelTextures_memoryInUse(), 0u);
    EXPECT_THAT(only(bind(plain), "TexImage2D"), IsEmpty()) << "the base level is there as well";

    // Refused, the texture without levels is gone, and both textures try again.
    const Held<Image2D> direct = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> plainDirect = makeTexture(direct), smoothDirect = makeTexture(direct);
    qelTexture2D_setFiltering(smoothDirect, kLinear, kLinear);
    bind(plainDirect);
    glRecorder.uploadsUntilOutOfMemory = 0;
    bind(smoothDirect, QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelTextures_memoryInUse(), 0u);
    EXPECT_EQ(upload(plainDirect).size(), 1u);
}

TEST_F(UploadTest, AChangedImageBringsItsLevelsUpToDate) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Luminance, 2, 2);
    const Held<Texture2D> texture = makeTexture(image);
    qelTexture2D_setFiltering(texture, kLinear, kLinear);
    bind(texture);
    EXPECT_EQ(glRecorder.uploads.back().bytes, std::vector<uint8_t>{255});
    const uint8_t black[] = {0, 0, 0, 0};
    qelImage2D_set(image, 0, 0, 2, 2, black);
    bind(texture);
    EXPECT_EQ(glRecorder.uploads.back().bytes, std::vector<uint8_t>{0});
}

// --- Replacing and releasing ---

TEST_F(UploadTest, AChangedImageIsUploadedAgain) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Alpha, 8, 8);
    const Held<Texture2D> texture = makeTexture(image);
    bind(texture);
    const uint8_t pixel = 7;
    qelImage2D_set(image, 0, 0, 1, 1, &pixel);
    const GlLines again = bind(texture);
    EXPECT_EQ(only(again, "Parameter").size(), 4u) << "a new texture knows nothing of the old one's parameters";
    EXPECT_THAT(again, testing::IsSupersetOf({"glBindTexture(GL_TEXTURE_2D, 1)", "glDeleteTextures(1)",
                                              "glGenTextures(2)", "glBindTexture(GL_TEXTURE_2D, 2)"}));
    EXPECT_EQ(glRecorder.uploads.back().bytes[0], 7);
    EXPECT_EQ(qelTextures_memoryInUse(), 128u);
    EXPECT_THAT(bind(texture), ElementsAre("glBindTexture(GL_TEXTURE_2D, 2)"));
}

TEST_F(UploadTest, AnImageThatGoesTakesItsTextureAlong) {
    Held<Image2D> unused = makeImage(ImageFormat::Alpha, 8, 8);
    glRecorder.take();
    unused.drop();
    EXPECT_THAT(glRecorder.take(), IsEmpty()) << "no context is needed for an image that was never drawn";
    {
        const Held<Image2D> image = makeImage(ImageFormat::Alpha, 8, 8);
        const Held<Texture2D> texture = makeTexture(image);
        bind(texture);
    }
    EXPECT_THAT(glRecorder.take(), ElementsAre("glDeleteTextures(1)"));
}

// --- Budget ---

TEST_F(UploadTest, ImagesAreChargedWhatTheyTakeInOpenGlEs) {
    struct Case {
        ImageFormat format;
        int32_t width, height;
        uint32_t direct, palette;
    };
    for (const Case& c :
         {Case{ImageFormat::Alpha, 1, 1, 128, 128}, Case{ImageFormat::Alpha, 16, 16, 256, 1024},
          Case{ImageFormat::Luminance, 16, 16, 256, 768}, Case{ImageFormat::LuminanceAlpha, 16, 16, 512, 1024},
          Case{ImageFormat::Rgb, 16, 8, 256, 256}, Case{ImageFormat::Rgba, 16, 16, 512, 512},
          Case{ImageFormat::Luminance, 8, 4, 128, 128}, Case{ImageFormat::Rgb, 256, 256, 131072, 131072}}) {
        const Held<Image2D> direct = makeImage(c.format, c.width, c.height);
        const Held<Image2D> palettized = makePaletteImage(c.format, c.width, c.height);
        EXPECT_EQ(qelTextures_accountingSize(direct), c.direct) << int32_t(c.format) << " of width " << c.width;
        EXPECT_EQ(qelTextures_accountingSize(palettized), c.palette) << int32_t(c.format) << " of width " << c.width;
    }
}

TEST_F(UploadTest, AnUploadOverTheLimitIsRefusedUntilThereIsRoom) {
    limit = 1000;
    Held<Image2D> first = makeImage(ImageFormat::Rgb, 16, 16);
    const Held<Image2D> second = makeImage(ImageFormat::Rgb, 16, 16);
    Held<Texture2D> firstTexture = makeTexture(first);
    const Held<Texture2D> secondTexture = makeTexture(second);
    bind(firstTexture);
    qelStatus_set(QEL_STATUS_OK);
    EXPECT_THAT(bind(secondTexture, QEL_STATUS_OUT_OF_MEMORY),
                ElementsAre("glGenTextures(2)", "glBindTexture(GL_TEXTURE_2D, 2)"));
    EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY);
    EXPECT_EQ(qelTextures_memoryInUse(), 512u);
    EXPECT_THAT(only(bind(secondTexture, QEL_STATUS_OUT_OF_MEMORY), "Textures("),
                ElementsAre("glDeleteTextures(2)", "glGenTextures(3)"));
    limit = 1024;
    EXPECT_EQ(upload(secondTexture).size(), 1u) << "the limit itself may be reached";
    limit = 1000;
    EXPECT_THAT(upload(secondTexture), IsEmpty()) << "what is uploaded stays";

    const Held<Image2D> third = makePaletteImage(ImageFormat::Alpha, 8, 8);
    const Held<Texture2D> thirdTexture = makeTexture(third);
    bind(thirdTexture, QEL_STATUS_OUT_OF_MEMORY);
    firstTexture.drop();
    first.drop();
    EXPECT_EQ(upload(thirdTexture).size(), 1u);
    EXPECT_EQ(qelTextures_memoryInUse(), 768u);
}

TEST_F(UploadTest, OutOfMemoryInOpenGlEsIsReportedAndRetried) {
    struct Case {
        const char* what;
        bool palette;
        int32_t levelFilter;
        int32_t failing;  // upload
    };
    for (const Case& c : {Case{"direct", false, kBase, 0}, Case{"palette", true, kBase, 0},
                          Case{"a level", false, kLinear, 2}, Case{"palette levels", true, kLinear, 0}}) {
        const Held<Image2D> image =
            c.palette ? makePaletteImage(ImageFormat::Rgb, 8, 8) : makeImage(ImageFormat::Rgb, 8, 8);
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setFiltering(texture, c.levelFilter, kNearest);
        qelStatus_set(QEL_STATUS_OK);
        glRecorder.uploadsUntilOutOfMemory = c.failing;
        bind(texture, QEL_STATUS_OUT_OF_MEMORY);
        EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY) << c.what;
        EXPECT_EQ(qelTextures_memoryInUse(), 0u) << c.what;
        EXPECT_FALSE(upload(texture).empty()) << c.what;
    }
}

TEST_F(UploadTest, AnExhaustedHeapIsReportedAndRetried) {
    // Two rows of two bytes have to be padded; the levels of the changed image have to be built again.
    const int32_t allocations = sweepEngineAllocations(FailMode::Once, [&](CountingHeap& heap) {
        const Held<Image2D> image = makeMutableImage(ImageFormat::Alpha, 2, 2);
        if (!image) return;
        const Held<Texture2D> texture = makeTexture(image);
        if (!texture || qelTexture2D_setFiltering(texture, kLinear, kLinear) != QEL_STATUS_OK) return;
        const uint8_t pixel = 7;
        qelImage2D_set(image, 0, 0, 1, 1, &pixel);
        const bool failedBefore = heap.hasFailed();
        const Result result = qelTextures_bind(texture, 0);
        EXPECT_EQ(result, heap.hasFailed() && !failedBefore ? QEL_STATUS_OUT_OF_MEMORY : QEL_STATUS_OK);
        EXPECT_EQ(qelTextures_bind(texture, 0), QEL_STATUS_OK);
        EXPECT_EQ(qelTextures_memoryInUse(), 128u);
    });
    EXPECT_GT(allocations, 6);
}
