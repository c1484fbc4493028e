// Images on their way to OpenGL ES: forms, levels, budget, and when they are uploaded again.
#include "render/texture_upload.h"
#include "frame/error_status.h"
#include "tests/render/backend_fixture.h"

class UploadTest : public BackendTest {
protected:
    UploadTest() { EXPECT_EQ(qelTextures_memoryInUse(), 0u); }
    ~UploadTest() override { EXPECT_EQ(qelTextures_memoryInUse(), 0u); }

    // Binds as a draw does; its calls, in brief.
    std::string bind(Texture2D* texture, const std::string& part = "", Result expected = QEL_STATUS_OK) {
        glRecorder.take();
        EXPECT_EQ(qelTextures_bind(texture, 0), expected);
        return brief(only(glRecorder.take(), part));
    }
    std::string upload(Texture2D* texture) { return bind(texture, "TexImage2D"); }
};

static constexpr int32_t kBase = int32_t(TextureFilter::BaseLevel), kLinear = int32_t(TextureFilter::Linear),
                         kNearest = int32_t(TextureFilter::Nearest);

static std::string sampling(const std::string& min, const std::string& mag, const std::string& s,
                            const std::string& t) {
    return "TexParameterf(TEXTURE_MIN_FILTER, " + min + "); TexParameterf(TEXTURE_MAG_FILTER, " + mag +
           "); TexParameterf(TEXTURE_WRAP_S, " + s + "); TexParameterf(TEXTURE_WRAP_T, " + t + ")";
}

TEST_F(UploadTest, TheFirstBindingUploadsAndLaterOnesOnlyBind) {
    const Held<Image2D> image = makeImage(ImageFormat::Rgb, 16, 8);
    const Held<Texture2D> texture = makeTexture(image), other = makeTexture(image);
    EXPECT_EQ(bind(texture),
              "GenTextures(1); BindTexture(1); "
              "TexImage2D(0, RGB, 16, 8, 0, RGB, UNSIGNED_SHORT_5_6_5); GetError(); " +
                  sampling("NEAREST", "NEAREST", "REPEAT", "REPEAT"));
    EXPECT_EQ(bind(texture), "BindTexture(1)");
    EXPECT_EQ(bind(other), "BindTexture(1)") << "two textures share one upload";

    qelTexture2D_setFiltering(other, kBase, kLinear);
    qelTexture2D_setWrapping(other, 240, 241);
    EXPECT_EQ(bind(other, "Parameter"), sampling("LINEAR", "LINEAR", "CLAMP_TO_EDGE", "REPEAT"));
    EXPECT_EQ(bind(texture, "Parameter"), sampling("NEAREST", "NEAREST", "REPEAT", "REPEAT")) << "on its return";

    const Held<Image2D> otherImage = makeImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> third = makeTexture(otherImage);
    bind(third);
    EXPECT_EQ(bind(texture), "BindTexture(1)") << "nothing to send between images";
}

TEST_F(UploadTest, EveryFormHasItsCallAndItsCharge) {
    for (const auto& [format, direct, palette, paletteBytes, charge] :  // charges are of 16 x 16, without palette
         {std::tuple{ImageFormat::Alpha, "ALPHA, UNSIGNED_BYTE", "RGBA8_OES, 8, 8, 0, 1088", 1024u, 256u},
          {ImageFormat::Luminance, "LUMINANCE, UNSIGNED_BYTE", "RGB8_OES, 8, 8, 0, 832", 768, 256},
          {ImageFormat::LuminanceAlpha, "LUMINANCE_ALPHA, UNSIGNED_BYTE", "RGBA8_OES, 8, 8, 0, 1088", 1024, 512},
          {ImageFormat::Rgb, "RGB, UNSIGNED_SHORT_5_6_5", "R5_G6_B5_OES, 8, 8, 0, 576", 512, 512},
          {ImageFormat::Rgba, "RGBA, UNSIGNED_SHORT_4_4_4_4", "RGBA4_OES, 8, 8, 0, 576", 512, 512}}) {
        const Held<Image2D> plain = makeImage(format, 8, 8), palettized = makePaletteImage(format, 8, 8);
        const std::string call = direct, name = call.substr(0, call.find(','));
        EXPECT_EQ(upload(makeTexture(plain)), "TexImage2D(0, " + name + ", 8, 8, 0, " + call + ")");
        EXPECT_EQ(upload(makeTexture(palettized)), std::string("CompressedTexImage2D(0, PALETTE8_") + palette + ")");
        const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
        ASSERT_EQ(bytes.size(), paletteBytes + 64);
        EXPECT_EQ(std::vector(bytes.begin() + paletteBytes, bytes.end()), ramp(64)) << palette;
        EXPECT_EQ(qelTextures_accountingSize(makeImage(format, 16, 16)), charge) << name;
        EXPECT_EQ(qelTextures_accountingSize(makePaletteImage(format, 16, 16)), paletteBytes) << name;
        EXPECT_EQ(qelTextures_accountingSize(makeImage(format, 1, 1)), 128u) << "the least";
    }
    Result result;
    const std::vector<uint8_t> indices = ramp(64), palette = ramp(1024);
    const Held<Image2D> cutOut(qelImage2D_createPalettized5551(8, 8, indices.data(), palette.data(), &result));
    EXPECT_EQ(upload(makeTexture(cutOut)), "CompressedTexImage2D(0, PALETTE8_RGB5_A1_OES, 8, 8, 0, 576)");
}

TEST_F(UploadTest, RowsAreBroughtToTheAlignmentOfTheContext) {
    using Bytes = std::vector<uint8_t>;
    for (const auto& [format, width, height, alignment, bytes] :
         {std::tuple{ImageFormat::Alpha, 1, 4, 4, Bytes{0, 0, 0, 0, 1, 0, 0, 0, 2, 0, 0, 0, 3}},
          {ImageFormat::LuminanceAlpha, 1, 2, 4, {0, 1, 0, 0, 2, 3}},
          {ImageFormat::Alpha, 4, 2, 4, {0, 1, 2, 3, 4, 5, 6, 7}},
          {ImageFormat::Alpha, 2, 1, 4, {0, 1}},
          {ImageFormat::Alpha, 2, 2, 1, {0, 1, 2, 3}},
          {ImageFormat::Alpha, 4, 2, 8, {0, 1, 2, 3, 0, 0, 0, 0, 4, 5, 6, 7}}}) {
        const Held<Image2D> image = makeImage(format, width, height);
        glRecorder.unpackAlignment = alignment;
        bind(makeTexture(image));
        EXPECT_EQ(glRecorder.uploads.back().bytes, bytes);
    }
}

// --- Smaller levels ---

TEST_F(UploadTest, LevelsFollowTheBaseDirectOrInOneCall) {
    const Held<Image2D> image = makeImage(ImageFormat::Luminance, 8, 2);
    const Held<Texture2D> texture = makeTexture(image);
    qelTexture2D_setFiltering(texture, kLinear, kLinear);
    const std::string rest = ", 0, LUMINANCE, UNSIGNED_BYTE)";
    EXPECT_EQ(upload(texture), "TexImage2D(0, LUMINANCE, 8, 2" + rest + "; TexImage2D(1, LUMINANCE, 4, 1" + rest +
                                   "; TexImage2D(2, LUMINANCE, 2, 1" + rest + "; TexImage2D(3, LUMINANCE, 1, 1" + rest);
    EXPECT_EQ(glRecorder.uploads[1].bytes, (std::vector<uint8_t>{4, 6, 8, 10}));
    EXPECT_EQ(qelTextures_memoryInUse(), 128u) << "levels are not charged";

    for (const auto& [format, width, height, call] :
         {std::tuple{ImageFormat::Rgb, 4, 4, "CompressedTexImage2D(-2, PALETTE8_RGB8_OES, 4, 4, 0, 789)"},
          {ImageFormat::Rgba, 8, 2, "CompressedTexImage2D(-3, PALETTE8_RGBA8_OES, 8, 2, 0, 1047)"},
          {ImageFormat::Alpha, 1, 1, "CompressedTexImage2D(0, PALETTE8_RGBA8_OES, 1, 1, 0, 1025)"}}) {
        const Held<Image2D> palettized = makePaletteImage(format, width, height);
        const Held<Texture2D> chained = makeTexture(palettized);
        qelTexture2D_setFiltering(chained, kNearest, kNearest);
        EXPECT_EQ(upload(chained), call);
        EXPECT_EQ(qelTextures_memoryInUse(), 128u) << "chains are not charged";
    }
}

// What palettes of 16 bits keep, in full bytes: no darker than the base image alone is drawn.
TEST_F(UploadTest, EntriesOfAChainReachWhiteAndOpaque) {
    Result result;
    const std::vector<uint8_t> indices(16, 1);
    std::vector<uint8_t> palette = {1, 2, 3, 0, 255, 255, 255, 255, 0x80, 0x80, 0x80, 255};
    palette.resize(1024);
    const auto createOf = [&](int32_t format) {
        return qelImage2D_createPalettized(format, 4, 4, indices.data(), palette.data(), int32_t(palette.size()),
                                           &result);
    };
    const Held<Image2D> cutOut(qelImage2D_createPalettized5551(4, 4, indices.data(), palette.data(), &result));
    const Held<Image2D> nibbles(createOf(100));
    for (const auto& [image, grey] : {std::pair(cutOut.get(), 0x84), {nibbles.get(), 0x88}}) {
        const Held<Texture2D> texture = makeTexture(image);
        qelTexture2D_setFiltering(texture, kLinear, kNearest);
        bind(texture);
        const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
        EXPECT_EQ(bytes.at(3), 0);
        EXPECT_EQ(std::vector(bytes.begin() + 4, bytes.begin() + 8), std::vector<uint8_t>(4, 255));
        EXPECT_EQ(bytes.at(8), grey);
        EXPECT_EQ(bytes.at(11), 255);
    }
    palette = {1, 2, 3, 255, 255, 255, 0x80, 0x80, 0x80};
    palette.resize(768);
    const Held<Image2D> opaque(createOf(99));
    const Held<Texture2D> texture = makeTexture(opaque);
    qelTexture2D_setFiltering(texture, kLinear, kNearest);
    bind(texture);
    const std::vector<uint8_t>& bytes = glRecorder.uploads.back().bytes;
    EXPECT_EQ(std::vector(bytes.begin() + 3, bytes.begin() + 9),
              (std::vector<uint8_t>{255, 255, 255, 0x84, 0x82, 0x84}));
}

TEST_F(UploadTest, LevelsAreAddedForTheFirstTextureThatWantsThem) {
    const Held<Image2D> image = makePaletteImage(ImageFormat::Rgb, 8, 8);
    const Held<Texture2D> plain = makeTexture(image), smooth = makeTexture(image);
    qelTexture2D_setFiltering(smooth, kLinear, kLinear);
    bind(plain);
    EXPECT_EQ(qelTextures_memoryInUse(), 128u);
    EXPECT_EQ(bind(smooth, "Textures("), "") << "another unit may have the texture bound";
    EXPECT_EQ(glRecorder.uploads.back().texture, 1u);
    EXPECT_EQ(qelTextures_memoryInUse(), 0u);
    EXPECT_EQ(upload(plain), "") << "the base level is there as well";
}

// --- Replacing and releasing ---

// Until the first set it stores 3 bytes of 0xFF a pixel; its uploads are of the 16-bit form all along.
TEST_F(UploadTest, AChangedImageIsUploadedAgainWithItsLevels) {
    const Held<Image2D> image = makeMutableImage(ImageFormat::Rgb, 2, 2);
    const Held<Texture2D> texture = makeTexture(image);
    qelTexture2D_setFiltering(texture, kLinear, kLinear);
    bind(texture);
    ASSERT_EQ(glRecorder.uploads.size(), 2u);
    EXPECT_EQ(glRecorder.uploads[0].bytes, std::vector<uint8_t>(8, 255));
    EXPECT_EQ(glRecorder.uploads[1].bytes, std::vector<uint8_t>(2, 255));
    const std::vector<uint8_t> black(12);
    qelImage2D_set(image, 0, 0, 2, 2, black.data());
    const std::string again = bind(texture);
    EXPECT_TRUE(again.starts_with("BindTexture(1); DeleteTextures(1); GenTextures(2); BindTexture(2); ")) << again;
    EXPECT_TRUE(again.ends_with(sampling("LINEAR_MIPMAP_LINEAR", "LINEAR", "REPEAT", "REPEAT")))
        << "a new texture knows nothing of the old one's parameters";
    EXPECT_EQ(glRecorder.uploads.back().bytes, std::vector<uint8_t>(2, 0));
    EXPECT_EQ(qelTextures_memoryInUse(), 128u);
    EXPECT_EQ(bind(texture), "BindTexture(2)");
}

TEST_F(UploadTest, AnImageThatGoesTakesItsTextureAlong) {
    Held<Image2D> unused = makeImage(ImageFormat::Alpha, 8, 8), used = makeImage(ImageFormat::Alpha, 8, 8);
    glRecorder.take();
    unused.drop();
    EXPECT_TRUE(glRecorder.take().empty()) << "no context is needed for an image that was never drawn";
    bind(makeTexture(used));
    used.drop();
    EXPECT_EQ(brief(glRecorder.take()), "DeleteTextures(1)");
}

TEST_F(UploadTest, OutOfMemoryInOpenGlEsIsReportedAndRetried) {
    for (const int32_t levelFilter : {kBase, kLinear}) {
        for (const bool hasPalette : {false, true}) {
            const Held<Image2D> image =
                hasPalette ? makePaletteImage(ImageFormat::Rgb, 8, 8) : makeImage(ImageFormat::Rgb, 8, 8);
            const Held<Texture2D> plain = makeTexture(image), texture = makeTexture(image);
            qelTexture2D_setFiltering(texture, levelFilter, kNearest);
            if (levelFilter != kBase) bind(plain);  // refused its levels, the texture is gone for both
            glRecorder.uploadsUntilOutOfMemory = 0;
            qelStatus_set(QEL_STATUS_OK);
            bind(texture, "", QEL_STATUS_OUT_OF_MEMORY);
            EXPECT_EQ(qelStatus_get(), QEL_STATUS_OUT_OF_MEMORY);
            EXPECT_EQ(qelTextures_memoryInUse(), 0u);
            EXPECT_NE(upload(plain), "");
            EXPECT_EQ(upload(texture).empty(), levelFilter == kBase);
        }
    }
}
